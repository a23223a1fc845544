// A host's program in a project of its own.
#include <screenrecordproxy.h>

int main() {
    return KxScreenRecord::CreateProxy() == nullptr;
}
