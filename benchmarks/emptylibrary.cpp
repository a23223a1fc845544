// Does nothing. Its imports are those of the shipped library, so that loading it costs what loading them costs.
#include <windows.h>

extern "C" __declspec(dllexport) int KxEmptyLibrary() {
    return 0;
}
