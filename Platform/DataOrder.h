#pragma once

namespace Platform {

/// Whether the file system of this path is known to bring a file's content to the disk before a rename by which the
/// file replaces another: ext4 with a journal that orders data, and what lives in memory only. False also when nobody
/// can tell. Any thread; reads the options of one file system once, so that another mount of it counts at the next
/// start.
bool OrdersDataBeforeReplacing(const char* pszPath);

} // namespace Platform
