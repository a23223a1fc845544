#include "systemenvironment.h"
