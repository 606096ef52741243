#include "messaging/ValueTypes.h"
