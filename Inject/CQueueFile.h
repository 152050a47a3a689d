#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CTemporaryFile.h"

#include <string>
#include <string_view>

/// A new file of the queue: it is there when it is complete and on stable storage, or not at all. Used by one thread;
/// CRefusal (temporary) when it cannot be written.
class CQueueFile
{
public:
    CQueueFile(const Bex::CSimpleString& strDirectory, const std::string& strName);

    void Write(std::string_view bytes);
    void Finish(); ///< on stable storage, but for its name
    void Commit(); ///< it gets its name

private:
    void Flush();

    std::string m_strPath;
    Platform::CTemporaryFile m_temporary;
    Platform::CFileHandle m_writer;
    std::string m_strPending;
};
