#include "sdk/util/logtool.h"
