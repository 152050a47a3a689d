#pragma once

namespace Platform {

/// While one of these lives no child is started. Held while a file is written that others open as soon as it has its
/// name: a child that starts meanwhile holds a copy of the descriptor until it runs its program, and the file would
/// look as if it were still being written. Any thread, one at a time; not recursive.
class CStartsNoChild
{
public:
    CStartsNoChild();
    ~CStartsNoChild();
    CStartsNoChild(const CStartsNoChild&) = delete;
    CStartsNoChild& operator=(const CStartsNoChild&) = delete;
};

} // namespace Platform
