// Reads any bytes as a mail file: what was read must be in its normal form, and what is written of it must be read
// back with the same body.

#include "Check.h"
#include "Common/CHeaderReader.h"
#include "Common/CMail.h"
#include "MemoryFile.h"

namespace {

/// The fields under tight limits; the reader must neither lose count nor go on for ever.
void ReadFields(std::string_view bytes, uint64_t nMaxBytes, uint32_t nMaxLines)
{
    CMemoryFile file(bytes);
    CHeaderReader reader(file, nMaxBytes, nMaxLines);
    std::string strField;
    uint64_t nOffset = 0;
    while (reader.Next(strField) == CHeaderReader::EResult::Field) {
        Check(!strField.empty() && strField.find('\0') == std::string::npos);
        Check(reader.Offset() > nOffset && reader.Offset() <= nMaxBytes);
        nOffset = reader.Offset();
    }
    Check(reader.Offset() + reader.Buffered().size() <= bytes.size());
}

void CheckBody(std::string_view body)
{
    for (size_t i = 0; i < body.size(); ++i) {
        Check(body[i] != '\0');
        Check(body[i] != '\r' || (i + 1 < body.size() && body[i + 1] == '\n'));
        Check(body[i] != '\n' || (i > 0 && body[i - 1] == '\r'));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view bytes(reinterpret_cast<const char*>(pBytes), nSize);
    if (nSize >= 2)
        ReadFields(bytes.substr(2), pBytes[0] * 4u, pBytes[1]);
    CMemoryFile file(bytes);
    CMail mail;
    Check(mail.Read(file, false));
    CheckBody(mail.Body().View());
    for (const EWriteMode mode : {EWriteMode::Plain, EWriteMode::Envelope, EWriteMode::ReturnPath}) {
        CMemoryFile written;
        Check(mail.Write(written, mode));
        CMail again;
        Check(again.Read(written, false));
        const std::string_view body = mail.Body().View();
        const std::string_view kept = again.Body().View();
        Check(kept == body || (body.ends_with("\r\n.\r\n") && kept == body.substr(0, body.size() - 5)));
    }
    return 0;
}
