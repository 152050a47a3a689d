#pragma once

#include "Bex/CFile.h"
#include "Bex/CTime.h"
#include "Common/CMessagePart.h"
#include "Common/SLoadResult.h"
#include "Common/SSaveResult.h"

#include <functional>
#include <memory>
#include <string>

namespace Bex {
class CReplacingFile;
}

class CHeaderReader;
class CHeldMailFile;

/// Which lines stand at the top of a written mail.
enum class EWriteMode {
    Plain = 0,      ///< neither envelope nor Return-Path lines: what SMTP sends
    Envelope = 1,   ///< X-Envelope-From and X-Envelope-To
    ReturnPath = 2, ///< Return-Path
    Queue = 3       ///< the whole envelope: what is read again is the same mail
};

struct SSaveOptions
{
    bool bOrdered = false;               ///< flushed, where nothing less brings the content to the disk before the name
    std::function<void()> BeforeWaiting; ///< for the lock, when it is not had at once; may be null
    /// Gets there the complete file, still without its name; may be null.
    std::unique_ptr<Bex::CReplacingFile>* pUnnamed = nullptr;
    Bex::CSimpleString strTemporary{}; ///< path of the file in the making; empty: that of Bex::CReplacingFile
};

/// An Internet message (RFC 5322): originator and identification fields, and the mail file on disk.
///
/// Used by one thread at a time; never holds the file or its lock between calls. Abstract: which header lines
/// are written is decided by CMail.
class CMessage : public CMessagePart
{
public:
    CMessage();
    CMessage(const CMessage& other); ///< the creation time is that of the copying

    int SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue) override;
    virtual SLoadResult Read(Bex::CFile& file, bool bHeadersOnly);
    virtual void BuildHeaderLines(Bex::CList<Bex::CSimpleString>& lines, EWriteMode mode) const = 0;
    virtual SSaveResult Write(Bex::CFile& file, EWriteMode mode) const;
    virtual void SetFromAddress(const Bex::CSimpleString& strAddress);
    virtual void SetFrom(const Bex::CSimpleString& strValue);

    /// Header block with CR LF line ends and the blank line.
    std::string GetHeaderText(EWriteMode mode) const;

    /// Reads a mail file under its lock, which is waited for up to 10 s; without it the file is busy. A header block
    /// beyond MAX_HEADER_BYTES or MAX_HEADER_LINES, or a body beyond all memory, is refused (LIB_TOO_BIG).
    /// CInvalidParameterException or CSystemException when the lock cannot be made.
    SLoadResult Load(const Bex::CSimpleString& strPath, bool bHeadersOnly);
    /// Likewise; while the caller keeps the file open nobody may take it or write to it. An open one is read again.
    SLoadResult Load(const Bex::CSimpleString& strPath, bool bHeadersOnly, Bex::CFile& file);
    /// The same, the file being taken for as long as the caller keeps it.
    SLoadResult Load(const Bex::CSimpleString& strPath, CHeldMailFile& file,
                     const std::function<void()>& BeforeWaiting = nullptr);
    /// Writes a mail file under its lock. It gets its name only when it is complete; an existing file is replaced.
    SSaveResult Save(const Bex::CSimpleString& strPath, EWriteMode mode, const SSaveOptions& options = {}) const;
    /// The same, but never replaces: Exists when the name is taken.
    SSaveResult SaveNew(const Bex::CSimpleString& strPath, EWriteMode mode, const SSaveOptions& options = {}) const;

    static constexpr uint32_t MAX_HEADER_BYTES = 16u << 20;
    static constexpr uint32_t MAX_HEADER_LINES = 100000;
    Bex::CTime CreationTime() const { return m_created; }
    const Bex::CSimpleString& FromAddress() const { return m_strFromAddress; }
    const Bex::CSimpleString& FromName() const { return m_strFromName; }
    const Bex::CSimpleString& MessageID() const { return m_strMessageID; }
    const Bex::CSimpleString& Subject() const { return m_strSubject; }
    const Bex::CSimpleString& Date() const { return m_strDate; }
    const Bex::CSimpleString& Organization() const { return m_strOrganization; }
    const Bex::CSimpleString& References() const { return m_strReferences; }
    const Bex::CSimpleString& MimeVersion() const { return m_strMimeVersion; }

protected:
    virtual bool IsEnvelopeTooBig() const { return false; } ///< such a mail is not read

private:
    bool ReadHeaders(CHeaderReader& reader, bool& bHasHeader);
    template <class TOpen>
    SLoadResult LoadLocked(const Bex::CSimpleString& strPath, Bex::CFile& file, bool bHeadersOnly, TOpen Open,
                           const std::function<void()>& BeforeWaiting = nullptr);
    SSaveResult SaveAs(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace,
                       const SSaveOptions& options) const;

    Bex::CTime m_created;
    Bex::CSimpleString m_strFromAddress; ///< as written
    Bex::CSimpleString m_strFromName;
    Bex::CSimpleString m_strMessageID; ///< without angle brackets
    Bex::CSimpleString m_strSubject;
    Bex::CSimpleString m_strDate;
    Bex::CSimpleString m_strOrganization;
    Bex::CSimpleString m_strReferences;
    Bex::CSimpleString m_strMimeVersion;
};
