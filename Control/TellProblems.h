#pragma once

#include "Common/CConfigCheck.h"
#include "Control/CFindings.h"

#include <span>

/// What a settings file holds to no effect, as findings; the table is the one that it was checked by. An unknown key
/// comes with the one that was probably meant.
void TellProblems(const CConfigCheck& config, std::span<const Bex::SConfigKey> table, CFindings& findings);
