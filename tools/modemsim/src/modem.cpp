#include "modemsim/modem.h"
