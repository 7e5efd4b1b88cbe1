#include "client/root_store.h"

#include <memory>
#include <stdexcept>

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <wincrypt.h>

namespace updater {

namespace {

struct StoreCloser {
    using pointer = HCERTSTORE;
    void operator()(HCERTSTORE store) const noexcept { CertCloseStore(store, 0); }
};
using UniqueStore = std::unique_ptr<void, StoreCloser>;

struct CertificateReleaser {
    void operator()(const CERT_CONTEXT* certificate) const noexcept {
        CertFreeCertificateContext(certificate);
    }
};
using UniqueCertificate = std::unique_ptr<const CERT_CONTEXT, CertificateReleaser>;

constexpr DWORD kEncoding = X509_ASN_ENCODING;

UniqueStore OpenRootStore() {
    UniqueStore store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root"));
    if (!store) {
        throw std::runtime_error("The store of trusted authorities cannot be opened");
    }
    return store;
}

}  // namespace

void AddTrustedRoot(std::string_view certificate) {
    const UniqueStore store = OpenRootStore();
    if (CertAddEncodedCertificateToStore(store.get(), kEncoding,
                                         reinterpret_cast<const BYTE*>(certificate.data()),
                                         static_cast<DWORD>(certificate.size()),
                                         CERT_STORE_ADD_REPLACE_EXISTING, nullptr) == 0) {
        throw std::runtime_error("The authority cannot be stored");
    }
}

void RemoveTrustedRoot(std::string_view certificate) {
    const UniqueStore store = OpenRootStore();
    const UniqueCertificate wanted(
        CertCreateCertificateContext(kEncoding, reinterpret_cast<const BYTE*>(certificate.data()),
                                     static_cast<DWORD>(certificate.size())));
    const CERT_CONTEXT* const found = CertFindCertificateInStore(
        store.get(), kEncoding, 0, CERT_FIND_EXISTING, wanted.get(), nullptr);
    if (found != nullptr) {
        // Releases it, too.
        CertDeleteCertificateFromStore(found);
    }
}

}  // namespace updater
