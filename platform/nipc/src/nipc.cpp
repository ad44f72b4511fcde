#include "nipc/nipc.h"
