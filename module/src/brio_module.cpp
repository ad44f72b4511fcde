#include "brio/brio_module.h"
