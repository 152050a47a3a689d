#pragma once

namespace Platform {

/// While one of these lives no child is started. Held while a file is written that others open as soon as it has its
/// name: a child that starts meanwhile holds a copy of the descriptor until it runs its program, and the file would
/// look as if it were still being written. Any thread, any number at a time; not recursive.
class CStartsNoChild
{
public:
    class CStart;

    CStartsNoChild();
    ~CStartsNoChild();
    CStartsNoChild(const CStartsNoChild&) = delete;
    CStartsNoChild& operator=(const CStartsNoChild&) = delete;
};

/// The start of a child, up to where it runs its program. Waits for those who keep it from happening, and they for it;
/// but not for ever: of two volumes one may hang. Any thread, any number at a time.
class CStartsNoChild::CStart
{
public:
    CStart();
    ~CStart();
    CStart(const CStart&) = delete;
    CStart& operator=(const CStart&) = delete;
};

} // namespace Platform
