// Imports a library of the system as linkers do unless they are told otherwise: from its own folder if there is one.
#include <windows.h>

#include <timeapi.h>

int main() {
    return timeBeginPeriod(1) == TIMERR_NOERROR && timeEndPeriod(1) == TIMERR_NOERROR ? 0 : 1;
}
