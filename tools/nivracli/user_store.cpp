#include "user_store.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "cli_error.h"

namespace nivracli {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
// The entries this tool puts into the store carry a description that marks them and says which
// card, container and key spec they stand for: the prefix, then "<card>\n<container>\n<key spec>".
// (A description rather than a property of our own: Wine's crypt32 keeps no user-defined ones.)
std::wstring Wide(const std::string& text) {
  const int n = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
  std::wstring wide(n > 0 ? n : 1, L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, &wide[0], n);
  wide.resize(n > 0 ? n - 1 : 0);
  return wide;
}

constexpr wchar_t kMarkPrefix[] = L"Card certificate put here by nivracli\n";

std::string MarkFor(const std::string& card, const std::string& container, DWORD keySpec) {
  return card + "\n" + container + "\n" + std::to_string(keySpec);
}

std::string MarkOf(PCCERT_CONTEXT cert) {
  DWORD length = 0;
  if (!CertGetCertificateContextProperty(cert, CERT_DESCRIPTION_PROP_ID, nullptr, &length)) return "";
  std::wstring text(length / sizeof(wchar_t), L'\0');
  if (!CertGetCertificateContextProperty(cert, CERT_DESCRIPTION_PROP_ID, &text[0], &length)) return "";
  text.resize(wcsnlen(text.c_str(), text.size()));
  const std::wstring prefix = kMarkPrefix;
  if (text.compare(0, prefix.size(), prefix) != 0) return "";
  const std::wstring rest = text.substr(prefix.size());
  const int n = WideCharToMultiByte(CP_ACP, 0, rest.c_str(), -1, nullptr, 0, nullptr, nullptr);
  std::string mark(n > 0 ? n : 1, '\0');
  WideCharToMultiByte(CP_ACP, 0, rest.c_str(), -1, &mark[0], n, nullptr, nullptr);
  mark.resize(n > 0 ? n - 1 : 0);
  return mark;
}

// The size of the mark's property: its text with the terminating zero, padded with zeros to
// beyond the in-memory size of the key link. Wine's crypt32 (8.0) writes a registry store's entry
// through one buffer sized for the largest property so far; it replaces that buffer by the key
// link's stored form (20 bytes smaller than the in-memory one) without noting the smaller size,
// so the next property, if larger than the stored form but not than the in-memory form, is
// copied past the end of a heap block. The plain mark is exactly such a property (10 bytes too
// long, whatever the card and container names), and the overrun later brought the program down
// inside ntdll's heap code. A larger property makes crypt32 grow its buffer first. Readers stop
// at the first zero.
size_t MarkBlobSize(const std::wstring& text, const CRYPT_KEY_PROV_INFO& link) {
  const size_t linkSize = sizeof(CRYPT_KEY_PROV_INFO) +
                          (wcslen(link.pwszContainerName) + 1) * sizeof(wchar_t) +
                          (wcslen(link.pwszProvName) + 1) * sizeof(wchar_t);
  return std::max((text.size() + 1) * sizeof(wchar_t), linkSize + sizeof(wchar_t));
}

std::string CardOfMark(const std::string& mark) { return mark.substr(0, mark.find('\n')); }

std::string Encoded(PCCERT_CONTEXT cert) {
  return std::string(reinterpret_cast<const char*>(cert->pbCertEncoded), cert->cbCertEncoded);
}

class UserStore {
 public:
  UserStore() {
    store_ = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0,
                           CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG, L"MY");
    if (store_ == nullptr) {
      store_ = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY");
    }
    if (store_ == nullptr) FailLast("opening the user's \"MY\" certificate store");
  }
  ~UserStore() { CertCloseStore(store_, 0); }
  UserStore(const UserStore&) = delete;
  UserStore& operator=(const UserStore&) = delete;
  HCERTSTORE get() const { return store_; }

  // Copies of the marked entries for which `drop` answers true, taken out of the store.
  template <class Predicate>
  int RemoveMarked(Predicate drop) {
    std::vector<PCCERT_CONTEXT> doomed;
    PCCERT_CONTEXT it = nullptr;
    while ((it = CertEnumCertificatesInStore(store_, it)) != nullptr) {
      const std::string mark = MarkOf(it);
      if (!mark.empty() && drop(mark, it)) doomed.push_back(CertDuplicateCertificateContext(it));
    }
    for (PCCERT_CONTEXT cert : doomed) {
      if (!CertDeleteCertificateFromStore(cert)) FailLast("removing a certificate from \"MY\"");
    }
    // Wine's registry-backed store writes removals only when told to commit them.
    if (!doomed.empty()) CertControlStore(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr);
    return static_cast<int>(doomed.size());
  }

 private:
  HCERTSTORE store_ = nullptr;
};

}  // namespace

void PropagateCertificate(const Args& args, const std::string& card, const std::string& container,
                          DWORD keySpec, const Bytes& certificate, PropagationResult* result) {
  PCCERT_CONTEXT cert = CertCreateCertificateContext(kEncoding, certificate.data(),
                                                     static_cast<DWORD>(certificate.size()));
  if (cert == nullptr) FailLast("the certificate on the card cannot be read");
  const std::string mark = MarkFor(card, container, keySpec);
  const std::wstring containerString = Wide(ContainerString(card, container));
  const std::wstring provider = Wide(args.Provider());
  CRYPT_KEY_PROV_INFO info{};
  info.pwszContainerName = const_cast<wchar_t*>(containerString.c_str());
  info.pwszProvName = const_cast<wchar_t*>(provider.c_str());
  info.dwProvType = PROV_RSA_FULL;
  info.dwKeySpec = keySpec;
  const std::wstring description = kMarkPrefix + Wide(mark);
  std::vector<BYTE> markBytes(MarkBlobSize(description, info), 0);
  std::memcpy(markBytes.data(), description.c_str(), description.size() * sizeof(wchar_t));
  CRYPT_DATA_BLOB markBlob{static_cast<DWORD>(markBytes.size()), markBytes.data()};
  if (!CertSetCertificateContextProperty(cert, CERT_KEY_PROV_INFO_PROP_ID, 0, &info)) {
    DWORD code = GetLastError();
    CertFreeCertificateContext(cert);
    Fail("linking the certificate to its key", code);
  }
  if (!CertSetCertificateContextProperty(cert, CERT_DESCRIPTION_PROP_ID, 0, &markBlob)) {
    DWORD code = GetLastError();
    CertFreeCertificateContext(cert);
    Fail("marking the certificate as propagated", code);
  }

  UserStore store;
  const std::string encoded = Encoded(cert);
  // Entries of the same container and key that hold an older certificate.
  result->removed += store.RemoveMarked([&](const std::string& m, PCCERT_CONTEXT c) {
    return m == mark && Encoded(c) != encoded;
  });
  PCCERT_CONTEXT existing =
      CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING, cert, nullptr);
  const std::string existingMark = existing != nullptr ? MarkOf(existing) : "";
  if (existing != nullptr) CertFreeCertificateContext(existing);
  if (existing != nullptr && existingMark.empty()) {
    std::printf("  %s: already in \"MY\", put there by someone else: left as it is\n",
                ContainerString(card, container).c_str());
  } else if (existingMark == mark) {
    ++result->kept;
  } else {
    if (!CertAddCertificateContextToStore(store.get(), cert, CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
      DWORD code = GetLastError();
      CertFreeCertificateContext(cert);
      Fail("adding the certificate to \"MY\"", code);
    }
    ++result->added;
  }
  CertFreeCertificateContext(cert);
}

PropagationResult PropagateAll(const Args& args) {
  PropagationResult result;
  std::set<std::string> present;  // mark + encoded certificate of every certificate on a card
  const std::vector<std::string> cards = ReachableCards(args);
  for (const std::string& card : cards) {
    for (const CardContainer& container : ReadCard(args, card)) {
      for (const CardKey& key : container.keys) {
        if (key.certificate.empty()) continue;
        PropagateCertificate(args, card, container.name, key.keySpec, key.certificate, &result);
        present.insert(MarkFor(card, container.name, key.keySpec) + "\n" +
                       std::string(key.certificate.begin(), key.certificate.end()));
      }
    }
  }
  // With --card only that card was read: entries of other cards are left alone.
  UserStore store;
  result.removed += store.RemoveMarked([&](const std::string& mark, PCCERT_CONTEXT cert) {
    if (args.Has("card") && CardOfMark(mark) != args.Card()) return false;
    return present.count(mark + "\n" + Encoded(cert)) == 0;
  });
  return result;
}

}  // namespace nivracli
