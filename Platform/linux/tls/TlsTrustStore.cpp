#include "Platform/linux/tls/TlsTrustStore.h"

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

} // namespace

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
