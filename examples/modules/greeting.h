// What greeting.krx exports to the modules that link against it.
#pragma once

#include "kvrxmodule.h"

// The greeting phrase, a static text.
KVRX_MODULE_EXPORT const char* greetingText();
