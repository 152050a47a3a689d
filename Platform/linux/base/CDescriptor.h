#pragma once

#include <unistd.h>
#include <utility>

namespace Platform {

/// Owns one file descriptor and closes it.
class CDescriptor
{
public:
    CDescriptor() = default;
    explicit CDescriptor(int iDescriptor) : m_iDescriptor(iDescriptor) {} ///< a negative number: none
    ~CDescriptor() { Close(); }
    CDescriptor(CDescriptor&& other) noexcept : m_iDescriptor(other.Release()) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept
    {
        if (this != &other) {
            Close();
            m_iDescriptor = other.Release();
        }
        return *this;
    }

    bool IsValid() const { return m_iDescriptor >= 0; }
    int Get() const { return m_iDescriptor; }
    int Release() { return std::exchange(m_iDescriptor, -1); } ///< the caller owns it now
    void Close()
    {
        if (IsValid())
            close(std::exchange(m_iDescriptor, -1));
    }

private:
    int m_iDescriptor = -1;
};

} // namespace Platform
