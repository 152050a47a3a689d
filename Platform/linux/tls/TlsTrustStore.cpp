#include "Platform/linux/tls/TlsTrustStore.h"

#include "Platform/CDirectoryListing.h"
#include "Platform/TlsChain.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <sys/stat.h>

namespace Platform {

namespace {

std::string Chosen(const char* pszVariable, const char* pszDefault)
{
    const char* const pszValue = secure_getenv(pszVariable);
    return pszValue != nullptr ? pszValue : pszDefault;
}

/// Where a store comes from, and when that changed last.
std::string Origin(const std::string& strPath)
{
    struct stat status
    {};
    if (stat(strPath.c_str(), &status) != 0)
        return strPath + " -";
    return strPath + ' ' + std::to_string(status.st_ino) + ' ' + std::to_string(status.st_size) + ' ' +
           std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec);
}

std::shared_ptr<X509_STORE> Load()
{
    std::shared_ptr<X509_STORE> pStore(X509_STORE_new(), &X509_STORE_free);
    if (pStore != nullptr)
        X509_STORE_set_default_paths(pStore.get()); // what is missing is no root; a chain that needs it fails
    ERR_clear_error();
    return pStore;
}

/// A root in its directory has the hash of its name and a number for its name.
bool HoldsRoots(const std::string& strDirectories)
{
    for (size_t nStart = 0; nStart <= strDirectories.size();) { // a list, parted like PATH
        const size_t nEnd = std::min(strDirectories.find(':', nStart), strDirectories.size());
        CDirectoryListing listing;
        listing.Read(strDirectories.substr(nStart, nEnd - nStart).c_str());
        for (size_t n = 0; n < listing.Count(); ++n) {
            if (std::string_view(listing.At(n).pszName).ends_with(".0"))
                return true;
        }
        nStart = nEnd + 1;
    }
    return false;
}

} // namespace

bool HasTrustedRoots()
{
    const std::shared_ptr<X509_STORE> pStore = TrustStore();
    const bool bInFile = pStore != nullptr && sk_X509_OBJECT_num(X509_STORE_get0_objects(pStore.get())) > 0;
    return bInFile || HoldsRoots(Chosen(X509_get_default_cert_dir_env(), X509_get_default_cert_dir()));
}

std::shared_ptr<X509_STORE> TrustStore()
{
    static std::mutex mutex;
    static std::string strLoadedFrom;
    static std::shared_ptr<X509_STORE> pLoaded;
    const std::string strOrigin = Origin(Chosen(X509_get_default_cert_file_env(), X509_get_default_cert_file())) + ' ' +
                                  Origin(Chosen(X509_get_default_cert_dir_env(), X509_get_default_cert_dir()));
    const std::lock_guard lock(mutex);
    if (pLoaded == nullptr || strOrigin != strLoadedFrom) {
        pLoaded = Load();
        strLoadedFrom = strOrigin;
    }
    return pLoaded;
}

} // namespace Platform
