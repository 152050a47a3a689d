#pragma once

#include "Platform/IWaitable.h"

#include <string>
#include <string_view>

namespace Platform {

/// Tells that names in one directory (not below it) changed or that a file in it was written and closed.
///
/// Used by one thread, but any thread may wait on it. LastError tells why Open or Consume failed.
class CDirectoryWatch : public IWaitable
{
public:
    CDirectoryWatch() = default;
    ~CDirectoryWatch() override;
    CDirectoryWatch(const CDirectoryWatch&) = delete;
    CDirectoryWatch& operator=(const CDirectoryWatch&) = delete;

    /// Of names that do not end so (without regard to case) nothing is told, though who waits may be woken.
    bool Open(const char* pszDirectory, std::string_view ending = {});
    bool IsOpen() const { return m_iDescriptor >= 0; }
    bool Close();
    enum class EResult { Unchanged, Changed, Broken, Failed };
    /// Takes every pending notification; never blocks. Broken: something changed, but the directory itself went
    /// away and nothing more will be told. Failed: the question itself failed.
    EResult Consume();
    int WaitDescriptor() const override { return m_iDescriptor; }

private:
    int m_iDescriptor = -1;
    std::string m_strEnding;
};

} // namespace Platform
