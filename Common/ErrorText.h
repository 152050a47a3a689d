#pragma once

#include "Platform/Errors.h"

#include <string>

/// What the failure of a platform operation means, in plain words, such as "no such file or directory". Any thread.
std::string ErrorText(Platform::SError error);
