#pragma once

#include "tests/support/temp_root.h"
