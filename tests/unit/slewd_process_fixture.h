// The real slewd fixture, for the tests that include it by this name.
#pragma once
#include "realtime_fixture.h"
