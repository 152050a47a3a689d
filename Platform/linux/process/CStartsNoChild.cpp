#include "Platform/CStartsNoChild.h"

#include <mutex>

namespace Platform {

namespace {

std::mutex& StartMutex()
{
    static std::mutex s_mutex;
    return s_mutex;
}

} // namespace

CStartsNoChild::CStartsNoChild() { StartMutex().lock(); }

CStartsNoChild::~CStartsNoChild() { StartMutex().unlock(); }

} // namespace Platform
