// Cards and containers: list what the cards hold, create and delete containers, and put the
// cards' certificates into the user's store.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"
#include "commands.h"
#include "user_store.h"

namespace nivracli {

namespace {

std::string Subject(const Bytes& der) {
  PCCERT_CONTEXT cert = CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                                     static_cast<DWORD>(der.size()));
  if (cert == nullptr) return "(unreadable certificate)";
  char name[512] = "";
  CertNameToStrA(X509_ASN_ENCODING, &cert->pCertInfo->Subject, CERT_X500_NAME_STR, name, sizeof(name));
  CertFreeCertificateContext(cert);
  return name;
}

int List(const Args& args) {
  const std::vector<std::string> cards = ReachableCards(args);
  if (cards.empty()) FailWith("no card is reachable", kExitNoCard);
  for (const std::string& card : cards) {
    std::printf("card \"%s\"\n", card.c_str());
    const std::vector<CardContainer> containers = ReadCard(args, card);
    for (const CardContainer& container : containers) {
      std::printf("  container \"%s\"  (%s)\n", container.name.c_str(),
                  ContainerString(card, container.name).c_str());
      if (container.keys.empty()) std::printf("    no key pairs\n");
      for (const CardKey& key : container.keys) {
        std::printf("    %-9s key  %lu bits, certificate: %s\n", KeySpecName(key.keySpec), key.bits,
                    key.certificate.empty() ? "none" : Subject(key.certificate).c_str());
      }
    }
    std::printf("  %u container(s)\n", static_cast<unsigned>(containers.size()));
  }
  return kExitOk;
}

int Create(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  OpenContainer(args, name, CRYPT_NEWKEYSET, true);
  std::printf("container \"%s\" created\n", name.c_str());
  return kExitOk;
}

int Delete(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  OpenContainer(args, name, CRYPT_DELETEKEYSET, true);
  std::printf("container \"%s\" deleted with its keys and certificates\n", name.c_str());
  std::printf("run \"nivracli propagate\" to remove its certificates from the user's store\n");
  return kExitOk;
}

int Propagate(const Args& args) {
  const PropagationResult r = PropagateAll(args);
  std::printf("certificates in the user's \"MY\" store: %d added, %d already there, %d removed\n",
              r.added, r.kept, r.removed);
  return kExitOk;
}

}  // namespace

void AddCardCommands(std::vector<Command>* commands) {
  commands->push_back({"list", "", "cards, their containers, key sizes and certificate subjects", List});
  commands->push_back({"create", "CONTAINER", "create a container on the card", Create});
  commands->push_back({"delete", "CONTAINER", "delete a container with its keys and certificates", Delete});
  commands->push_back({"propagate", "",
                       "put every card certificate into the user's \"MY\" store with its key "
                       "link; remove entries whose card or container is gone",
                       Propagate});
}

}  // namespace nivracli
