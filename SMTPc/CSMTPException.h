#pragma once

#include "Bex/CException.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

/// A mail transaction was refused: the session's transcript at that moment, or one line that tells why. A value.
class CSMTPException : public Bex::CException
{
public:
    CSMTPException(const char* pszClassName, const char* pszSourceFile, int iLine,
                   const Bex::CList<Bex::CSimpleString>& transcript);
    CSMTPException(const char* pszClassName, const char* pszSourceFile, int iLine, const Bex::CSimpleString& strLine);

    const Bex::CList<Bex::CSimpleString>& Lines() const { return m_lines; }
    /// As logs show it, without its end; empty when there is none.
    Bex::CSimpleString LastLine() const;

private:
    Bex::CList<Bex::CSimpleString> m_lines{false};
};

/// It may go through later.
class CSMTPTemporaryException : public CSMTPException
{
public:
    template <class TWhat>
    CSMTPTemporaryException(const char* pszSourceFile, int iLine, const TWhat& what)
        : CSMTPException("CSMTPTemporaryException", pszSourceFile, iLine, what)
    {}
};

/// It will never go through.
class CSMTPPermanentException : public CSMTPException
{
public:
    template <class TWhat>
    CSMTPPermanentException(const char* pszSourceFile, int iLine, const TWhat& what)
        : CSMTPException("CSMTPPermanentException", pszSourceFile, iLine, what)
    {}
};
