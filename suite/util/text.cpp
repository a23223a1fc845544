#include "sdk/util/text.h"
