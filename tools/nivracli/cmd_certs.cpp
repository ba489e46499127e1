// Certificates of the container keys: store one on the card (and in the user's store at once),
// read one back.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"
#include "commands.h"
#include "file_formats.h"
#include "user_store.h"

namespace nivracli {

namespace {

int ImportCertificate(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_KEYEXCHANGE);
  Bytes der = CertificateFromFile(ReadWholeFile(args.Need("in")));
  Context ctx = OpenContainer(args, name, 0, true);
  Key key;
  GetUserKey(ctx, keySpec, &key);
  if (!CryptSetKeyParam(key.get(), KP_CERTIFICATE, der.data(), 0)) {
    FailLast("storing the certificate on the card");
  }
  std::printf("certificate stored with the %s key of container \"%s\"\n", KeySpecName(keySpec), name.c_str());
  PropagationResult r;
  PropagateCertificate(args, ChosenCard(args), name, keySpec, der, &r);
  std::printf("certificate put into the user's \"MY\" store (%d added, %d already there, %d replaced)\n",
              r.added, r.kept, r.removed);
  return kExitOk;
}

int ReadCertificate(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_KEYEXCHANGE);
  Context ctx = OpenContainer(args, name, CRYPT_SILENT, false);
  Key key;
  GetUserKey(ctx, keySpec, &key);
  const Bytes der = ReadCardCertificate(key.get());
  if (der.empty()) {
    FailWith(std::string("the ") + KeySpecName(keySpec) + " key of container \"" + name +
                 "\" has no certificate",
             kExitNoKey);
  }
  const std::string pem = ToPem(der, "CERTIFICATE");
  if (args.Has("out")) {
    WriteWholeFile(args.Get("out"), Bytes(pem.begin(), pem.end()));
    std::printf("certificate written to %s\n", args.Get("out").c_str());
  } else {
    std::fputs(pem.c_str(), stdout);
  }
  return kExitOk;
}

}  // namespace

void AddCertificateCommands(std::vector<Command>* commands) {
  commands->push_back({"import-cert", "CONTAINER --in FILE [--key-spec S]",
                       "store a certificate (DER or PEM) with a container key (default key keySpec: "
                       "exchange) and put it into the user's \"MY\" store",
                       ImportCertificate});
  commands->push_back({"read-cert", "CONTAINER [--key-spec S] [--out FILE]",
                       "read a container key's certificate back (PEM)", ReadCertificate});
}

}  // namespace nivracli
