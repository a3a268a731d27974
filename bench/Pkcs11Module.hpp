#pragma once

#include <string>

#include "driver/Pkcs11.hpp"

namespace bench {

// A module as a program uses it. Failures are thrown. Needs no library of ours, so that a fresh
// program that loads a module has nothing loaded before.
class Pkcs11Module {
 public:
  // Loads it, and initialises it unless this program has done so. `pin` is for modules that ask for
  // a login; empty: none.
  Pkcs11Module(const std::string &path, std::string pin);

  // A session with the only RSA key that it finds, for one thread.
  class Signer {
   public:
    // Opens a session, logs in where no session of this program has, and looks for the key.
    explicit Signer(const Pkcs11Module &module);
    ~Signer();
    Signer(Signer &&other) = delete;

    // A DigestInfo of SHA-256 with PKCS #1 v1.5 padding; the key is RSA-2048.
    void sign();

   private:
    CK_FUNCTION_LIST &functions_;
    CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
    CK_OBJECT_HANDLE key_ = CK_INVALID_HANDLE;
  };

 private:
  CK_FUNCTION_LIST *functions_ = nullptr;
  std::string pin_;
};

}  // namespace bench
