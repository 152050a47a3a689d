#include "Tobix/CMDAService.h"

/// The one service object: the entry point finds it.
static CMDAService s_service;
