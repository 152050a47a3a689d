#include "Bex/CConsoleApplication.h"

namespace Bex {

namespace {

CConsoleApplication* s_pInstance = nullptr;

} // namespace

CConsoleApplication::CConsoleApplication() { s_pInstance = this; }

CConsoleApplication::~CConsoleApplication() { s_pInstance = nullptr; }

CConsoleApplication* CConsoleApplication::Instance() { return s_pInstance; }

} // namespace Bex
