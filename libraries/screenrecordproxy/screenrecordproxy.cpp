#include "screenrecordproxy.h"
