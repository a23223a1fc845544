// Another worker for the same protocol. Without a host it ends with the code of a channel that cannot be opened.
#include <sdk/ipcmessage/ipcmessage.h>
#include <sdk/vcr/workerprotocol.h>

int main() {
    IPCMessageService service(static_cast<int>(kxvcr::kWorkerModuleId));
    return service.Connect(0) == 0 ? 0 : static_cast<int>(kxvcr::ExitCode::NoChannel);
}
