#pragma once

#include "Bex/CTableFile.h"

namespace Bex {

/// A list file in memory: one entry per line, "#" begins a comment. Entries keep their case, order and duplicates.
class CStorableStringList : public CTableFile<CList<CSimpleString>>
{
public:
    explicit CStorableStringList(bool bTrim) : CTableFile(MOST_TABLE_BYTES), m_bTrim(bTrim) {}
    ~CStorableStringList() override = default;

protected:
    virtual bool OnLoadLine(CSimpleString& strEntry); ///< true accepts the entry; may change it

private:
    void LoadLine(const CSimpleString& strLine, CTableReader& reader, CList& content) override;

    bool m_bTrim;
};

} // namespace Bex
