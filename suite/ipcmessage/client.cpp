#include "sdk/ipcmessage/ipcmessage.h"
