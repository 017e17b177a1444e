#include "host/common/host_config.h"
