// Programs of the kinds that load the driver: the first argument says which. Exit status 0 if all
// was as such a program needs it; else the check that failed is on standard error.

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "interop/CardUse.hpp"

namespace {

using system_tests::CardUse;
using system_tests::loadDriver;

void check(bool isTrue, const char *what) {
  if (!isTrue) {
    std::fprintf(stderr, "host: not so: %s\n", what);
    std::_Exit(1);
  }
}

CK_FUNCTION_LIST *f = nullptr;

CardUse begun() {
  f = loadDriver();
  check(f->C_Initialize(nullptr) == CKR_OK, "initialises");
  CardUse card(*f);
  check(card.open(), "finds the key");
  return card;
}

CK_RV sign(CardUse &card) {
  Bytes signature;
  return card.sign(Bytes(32, 7), signature);
}

void forksAndEndsTheDriverWhileThreadsSign() {
  begun();
  std::atomic<int> signatures = 0;
  std::vector<std::jthread> threads(4);
  for (std::jthread &thread : threads) {
    thread = std::jthread([&signatures] {
      CardUse card(*f);
      check(card.open(), "a thread finds the key");
      CK_RV result = CKR_OK;
      for (; result == CKR_OK; result = sign(card)) {
        ++signatures;
      }
      check(result == CKR_CRYPTOKI_NOT_INITIALIZED, "threads sign until the driver ends");
    });
  }
  while (signatures < 20) {
    std::this_thread::yield();
  }
  for (int round = 0; round < 10; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(/*seconds=*/15);
      CK_INFO info{};
      check(f->C_GetInfo(&info) == CKR_CRYPTOKI_NOT_INITIALIZED, "a child begins anew");
      CardUse card = begun();
      check(sign(card) == CKR_OK, "a child signs");
      check(f->C_Finalize(nullptr) == CKR_OK, "a child ends");
      std::exit(0);
    }
    int status = -1;
    check(waitpid(child, &status, 0) == child && status == 0, "a child ends well");
  }
  check(f->C_Finalize(nullptr) == CKR_OK, "ends");
}

// Prints what OpenSSL's default context is like, before or after the driver was used.
void showsItsOpenSSL(bool withTheDriver) {
  if (withTheDriver) {
    CardUse card = begun();
    check(sign(card) == CKR_OK, "signs");
  }
  check(ERR_peek_error() == 0, "no error is left");
  EVP_MD *const digest = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  EVP_MD_free(digest);
  ERR_clear_error();
  OSSL_PROVIDER_do_all(
      nullptr,
      [](OSSL_PROVIDER *provider, void *) {
        std::puts(OSSL_PROVIDER_get0_name(provider));
        return 1;
      },
      nullptr);
  std::printf("properties %d, SHA-256 %d\n", EVP_default_properties_is_fips_enabled(nullptr),
              digest != nullptr);
}

void looksForTheKey() {
  f = loadDriver();
  const bool isInitialised = f->C_Initialize(nullptr) == CKR_OK;
  std::printf("%s environment, %s\n", getauxval(AT_SECURE) != 0 ? "secure" : "usual",
              isInitialised && CardUse(*f).open() ? "found" : "nothing");
}

}  // namespace

int main(int argc, char **argv) {
  const std::string_view kind(argc > 1 ? argv[1] : "");
  if (kind == "ForksAndEndsTheDriverWhileThreadsSign") {
    forksAndEndsTheDriverWhileThreadsSign();
  } else if (kind == "ShowsItsOpenSSL") {
    showsItsOpenSSL(/*withTheDriver=*/argc > 2);
  } else {
    looksForTheKey();
  }
  return 0;
}
