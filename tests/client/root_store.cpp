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

// With Wine 10 a program that has the limited token makes the machine's store anew when it first
// looks into it, without this certificate, and so needs the user's store.
constexpr DWORD kPlaces[] = {CERT_SYSTEM_STORE_LOCAL_MACHINE, CERT_SYSTEM_STORE_CURRENT_USER};

// Each place by itself: otherwise the user's contains the machine's.
UniqueStore OpenRootStore(DWORD place) {
    UniqueStore store(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, place, L"Root"));
    if (!store) {
        throw std::runtime_error("The store of trusted authorities cannot be opened");
    }
    return store;
}

void Add(HCERTSTORE store, std::string_view certificate) {
    if (CertAddEncodedCertificateToStore(store, kEncoding,
                                         reinterpret_cast<const BYTE*>(certificate.data()),
                                         static_cast<DWORD>(certificate.size()),
                                         CERT_STORE_ADD_REPLACE_EXISTING, nullptr) == 0) {
        throw std::runtime_error("The authority cannot be stored");
    }
}

void Remove(HCERTSTORE store, std::string_view certificate) {
    const UniqueCertificate wanted(
        CertCreateCertificateContext(kEncoding, reinterpret_cast<const BYTE*>(certificate.data()),
                                     static_cast<DWORD>(certificate.size())));
    const CERT_CONTEXT* const found =
        CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_EXISTING, wanted.get(), nullptr);
    if (found != nullptr) {
        // Releases it, too.
        CertDeleteCertificateFromStore(found);
    }
}

}  // namespace

void AddTrustedRoot(std::string_view certificate) {
    for (const DWORD place : kPlaces) {
        Add(OpenRootStore(place).get(), certificate);
    }
}

void RemoveTrustedRoot(std::string_view certificate) {
    for (const DWORD place : kPlaces) {
        Remove(OpenRootStore(place).get(), certificate);
    }
}

}  // namespace updater
