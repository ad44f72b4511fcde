#include "brio_common/shared_data.h"
