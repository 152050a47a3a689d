#include "Bex/CStorableStringList.h"

#include "Bex/TextFunctions.h"

#include <utility>

namespace Bex {

bool CStorableStringList::OnLoadLine(CSimpleString&) { return true; }

void CStorableStringList::LoadLine(const CSimpleString& strLine, CTableReader& reader, CList& content)
{
    reader.Keep(strLine);
    const std::string_view line = strLine;
    const std::string_view entry = line.substr(0, line.find('#'));
    CSimpleString strEntry(m_bTrim ? TrimmedView(entry) : entry);
    if (!strEntry.IsEmpty() && OnLoadLine(strEntry))
        content.Append(std::move(strEntry));
}

} // namespace Bex
