// onlylogs.exe: writes one line into the suite's log. The exit code is 0 when its level is on.
#include <sdk/util/logtool.h>

int main() {
    LogWarnFun("three is %d", 3);
    return GetLogger().isEnabledFor(log4cplus::WARN_LOG_LEVEL) ? 0 : 1;
}
