#include "Platform/CTlsCertificateStore.h"
#include "Platform/CDirectoryListing.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"
#include "Platform/linux/tls/TlsHandles.h"

#include <openssl/pem.h>
#include <pwd.h>
#include <unistd.h>

namespace Platform {

namespace {

std::string HomeDirectory()
{
    bool bPresent = false;
    std::string strHome = EnvironmentVariable("HOME", bPresent);
    if (bPresent && !strHome.empty())
        return strHome;
    char buffer[4096];
    passwd entry{};
    passwd* pFound = nullptr;
    return getpwuid_r(geteuid(), &entry, buffer, sizeof(buffer), &pFound) == 0 && pFound != nullptr ? entry.pw_dir : "";
}

std::string DirectoryOf(ETlsStore store)
{
    bool bPresent = false;
    const bool bMachine = store == ETlsStore::Machine;
    std::string strChosen = EnvironmentVariable(bMachine ? "TOBIX_MACHINE_STORE" : "TOBIX_USER_STORE", bPresent);
    if (bPresent && !strChosen.empty())
        return strChosen;
    return bMachine ? "/etc/tobix/certs" : HomeDirectory() + "/.tobix/certs";
}

/// Null when the file holds no certificate.
std::shared_ptr<const STlsCertificateData> ReadCertificateFile(const std::string& strPath)
{
    const CBioPtr pFile(BIO_new_file(strPath.c_str(), "r"));
    auto pData = std::make_shared<STlsCertificateData>();
    if (pFile != nullptr)
        pData->pCertificate.reset(PEM_read_bio_X509(pFile.get(), nullptr, nullptr, nullptr));
    while (pData->pCertificate != nullptr) {
        CX509Ptr pNext(PEM_read_bio_X509(pFile.get(), nullptr, nullptr, nullptr));
        if (pNext == nullptr)
            break;
        pData->above.push_back(std::move(pNext));
    }
    ERR_clear_error(); // reading on until nothing is left ends with an error
    pData->strKeyFile = strPath;
    return pData->pCertificate == nullptr ? nullptr : pData;
}

} // namespace

bool CTlsCertificateStore::Open(ETlsStore store)
{
    Close();
    const std::string strDirectory = DirectoryOf(store);
    CDirectoryListing listing;
    if (!listing.Read(strDirectory.c_str())) {
        m_bOpen = store == ETlsStore::User && KindOf(strDirectory.c_str()) == EPathKind::Missing;
        return m_bOpen;
    }
    for (size_t i = 0; i < listing.Count(); ++i) {
        std::string strPath = strDirectory + '/';
        strPath += listing.At(i).pszName;
        if (!listing.At(i).bRegular || !strPath.ends_with(".pem"))
            continue;
        if (auto pData = ReadCertificateFile(strPath))
            m_certificates.emplace_back(std::move(pData));
    }
    m_bOpen = true;
    return true;
}

void CTlsCertificateStore::Close()
{
    m_bOpen = false;
    m_certificates.clear();
}

} // namespace Platform
