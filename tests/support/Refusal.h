#pragma once

// expectRefusal lives with the other log checks.
#include "support/LogCapture.h"
