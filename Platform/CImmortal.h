#pragma once

namespace Platform {

/// A static object that is never destroyed: threads may use it while the process takes its static objects down.
template <class T>
class CImmortal
{
public:
    CImmortal() : m_object() {}
    ~CImmortal() {}
    CImmortal(const CImmortal&) = delete;
    CImmortal& operator=(const CImmortal&) = delete;

    T& operator*() { return m_object; }
    T* operator->() { return &m_object; }

private:
    union {
        T m_object;
    };
};

} // namespace Platform
