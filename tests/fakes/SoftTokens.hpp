#pragma once

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <p11-kit/p11-kit.h>
#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/Identity.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace fakes {

inline constexpr const char *kSoftTokenModule = "/usr/lib/softhsm/libsofthsm2.so";

// Tokens in software, in a folder of the test's own: what this process and its children see of that
// module as long as this object lives.
class SoftTokens {
 public:
  SoftTokens() {
    std::filesystem::create_directory(folder_ / "tokens");
    std::filesystem::create_directory(moduleFolder());
    folder_.write("softhsm2.conf", "directories.tokendir = " + (folder_ / "tokens") +
                                       "\nobjectstore.backend = file\nlog.level = ERROR\n");
    setenv("SOFTHSM2_CONF", (folder_ / "softhsm2.conf").c_str(), /*overwrite=*/1);
    configure("soft", kSoftTokenModule);
  }
  ~SoftTokens() { unsetenv("SOFTHSM2_CONF"); }
  SoftTokens(const SoftTokens &) = delete;
  SoftTokens &operator=(const SoftTokens &) = delete;

  // Where the files lie that name the modules.
  [[nodiscard]] std::string moduleFolder() const { return folder_ / "modules"; }
  void configure(const std::string &name, const std::string &modulePath) const {
    folder_.write("modules/" + name + ".module", "module: " + modulePath + "\n");
  }

  // A new token whose PIN is `pin`.
  void make(const std::string &label, const std::string &pin) {
    const auto before = folders();
    const Session session(*this);
    std::string padded = label;
    padded.resize(32, ' ');
    std::string officer = "officer";
    const CK_SLOT_ID slot = session.slots().back();  // the last one holds a token without a name
    check(session.call().C_InitToken(slot, bytesOf(officer), officer.size(), bytesOf(padded)));
    CK_SESSION_HANDLE handle = session.open(slot);
    std::string userPIN = pin;
    check(session.call().C_Login(handle, CKU_SO, bytesOf(officer), officer.size()));
    check(session.call().C_InitPIN(handle, bytesOf(userPIN), userPIN.size()));
    tokens_[label] = {pin, newOf(before, folders())};
  }

  // An identity on a token; `isPrivate`: its key is hidden from those that are not logged in.
  void put(const std::string &token, const crypto::Identity &identity, const std::string &label,
           std::uint8_t id, bool isPrivate = true) {
    const Session session(*this);
    const CK_SESSION_HANDLE handle = session.open(session.slotOf(token));
    std::string pin = tokens_.at(token).pin;
    check(session.call().C_Login(handle, CKU_USER, bytesOf(pin), pin.size()));
    const Attributes shared = {{CKA_TOKEN, {1}}, {CKA_ID, {id}}, {CKA_LABEL, textBytes(label)}};
    create(session, handle, shared, certificateAttributes(identity.certificate));
    create(session, handle, shared, publicAttributes(identity.key));
    create(session, handle, shared, privateAttributes(identity.key, isPrivate));
  }

  // Takes the token away.
  void remove(const std::string &token) {
    std::filesystem::remove_all(tokens_.at(token).folder);
    tokens_.erase(token);
  }

 private:
  struct Made {
    std::string pin;
    std::filesystem::path folder;
  };
  using Attributes = std::vector<std::pair<CK_ATTRIBUTE_TYPE, Bytes>>;

  static void check(CK_RV result) {
    if (result != CKR_OK) {
      throw std::runtime_error(p11_kit_strerror(result));
    }
  }
  static CK_UTF8CHAR *bytesOf(std::string &text) {
    return reinterpret_cast<CK_UTF8CHAR *>(text.data());
  }
  static Bytes textBytes(const std::string &text) { return {text.begin(), text.end()}; }
  static Bytes numberBytes(CK_ULONG number) {
    const auto *const start = reinterpret_cast<const std::uint8_t *>(&number);
    return {start, start + sizeof number};
  }

  // The module, loaded and started.
  class Session {
   public:
    explicit Session(const SoftTokens & /*configuration*/)
        : module_(p11_kit_module_load(kSoftTokenModule, 0)) {
      if (module_ == nullptr) {
        throw std::runtime_error("softhsm2 is not installed; see scripts/dependencies");
      }
      check(p11_kit_module_initialize(module_));
    }
    ~Session() {
      p11_kit_module_finalize(module_);
      p11_kit_module_release(module_);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] const CK_FUNCTION_LIST &call() const { return *module_; }
    [[nodiscard]] std::vector<CK_SLOT_ID> slots() const {
      CK_ULONG count = 0;
      check(call().C_GetSlotList(CK_TRUE, nullptr, &count));
      std::vector<CK_SLOT_ID> slots(count);
      check(call().C_GetSlotList(CK_TRUE, slots.data(), &count));
      return slots;
    }
    [[nodiscard]] CK_SLOT_ID slotOf(const std::string &label) const {
      for (const CK_SLOT_ID slot : slots()) {
        CK_TOKEN_INFO info{};
        check(call().C_GetTokenInfo(slot, &info));
        const std::string_view there(reinterpret_cast<const char *>(info.label), 32);
        if (there.substr(0, there.find_last_not_of(' ') + 1) == label) {
          return slot;
        }
      }
      throw std::runtime_error("no token " + label);
    }
    [[nodiscard]] CK_SESSION_HANDLE open(CK_SLOT_ID slot) const {
      CK_SESSION_HANDLE handle = 0;
      check(call().C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                 &handle));
      return handle;
    }

   private:
    CK_FUNCTION_LIST *module_;
  };

  [[nodiscard]] std::vector<std::filesystem::path> folders() const {
    std::vector<std::filesystem::path> found;
    for (const auto &entry : std::filesystem::directory_iterator(folder_ / "tokens")) {
      found.push_back(entry.path());
    }
    return found;
  }
  static std::filesystem::path newOf(const std::vector<std::filesystem::path> &before,
                                     const std::vector<std::filesystem::path> &after) {
    return *std::ranges::find_if(
        after, [&](const auto &path) { return std::ranges::find(before, path) == before.end(); });
  }

  static void create(const Session &session, CK_SESSION_HANDLE handle, Attributes all,
                     const Attributes &own) {
    all.insert(all.end(), own.begin(), own.end());
    std::vector<CK_ATTRIBUTE> list;
    for (auto &[type, value] : all) {
      list.push_back({type, value.data(), value.size()});
    }
    CK_OBJECT_HANDLE object = 0;
    check(session.call().C_CreateObject(handle, list.data(), list.size(), &object));
  }

  static Bytes numberOf(const crypto::PrivateKey &key, const char *name) {
    BIGNUM *number = nullptr;
    EVP_PKEY_get_bn_param(key.native(), name, &number);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    BN_clear_free(number);
    return bytes;
  }
  static bool isRSA(const crypto::PrivateKey &key) {
    return key.publicKey().type() == crypto::KeyType::rsa;
  }
  // secp256r1 (RFC 5480 2.1.1.1).
  static Bytes curve() { return {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}; }

  static Attributes certificateAttributes(const crypto::Certificate &certificate) {
    return {{CKA_CLASS, numberBytes(CKO_CERTIFICATE)},
            {CKA_CERTIFICATE_TYPE, numberBytes(CKC_X_509)},
            {CKA_PRIVATE, {0}},
            {CKA_SUBJECT, textBytes("subject")},
            {CKA_VALUE, certificate.der()}};
  }
  static Attributes publicAttributes(const crypto::PrivateKey &key) {
    Attributes attributes = {{CKA_CLASS, numberBytes(CKO_PUBLIC_KEY)},
                             {CKA_KEY_TYPE, numberBytes(isRSA(key) ? CKK_RSA : CKK_EC)},
                             {CKA_PRIVATE, {0}},
                             {CKA_VERIFY, {1}}};
    if (isRSA(key)) {
      attributes.insert(attributes.end(), {{CKA_ENCRYPT, {1}},
                                           {CKA_WRAP, {0}},
                                           {CKA_MODULUS, numberOf(key, "n")},
                                           {CKA_PUBLIC_EXPONENT, numberOf(key, "e")}});
    } else {
      Bytes point = *key.publicKey().externalRepresentation();
      point.insert(point.begin(), {0x04, static_cast<std::uint8_t>(point.size())});
      attributes.insert(attributes.end(), {{CKA_EC_PARAMS, curve()}, {CKA_EC_POINT, point}});
    }
    return attributes;
  }
  static Attributes privateAttributes(const crypto::PrivateKey &key, bool isPrivate) {
    Attributes attributes = {{CKA_CLASS, numberBytes(CKO_PRIVATE_KEY)},
                             {CKA_KEY_TYPE, numberBytes(isRSA(key) ? CKK_RSA : CKK_EC)},
                             {CKA_PRIVATE, {static_cast<std::uint8_t>(isPrivate ? 1 : 0)}},
                             {CKA_SENSITIVE, {1}},
                             {CKA_SIGN, {1}},
                             {CKA_UNWRAP, {0}},
                             {CKA_DECRYPT, {static_cast<std::uint8_t>(isRSA(key) ? 1 : 0)}}};
    if (isRSA(key)) {
      attributes.insert(attributes.end(), {{CKA_MODULUS, numberOf(key, "n")},
                                           {CKA_PUBLIC_EXPONENT, numberOf(key, "e")},
                                           {CKA_PRIVATE_EXPONENT, numberOf(key, "d")},
                                           {CKA_PRIME_1, numberOf(key, "rsa-factor1")},
                                           {CKA_PRIME_2, numberOf(key, "rsa-factor2")},
                                           {CKA_EXPONENT_1, numberOf(key, "rsa-exponent1")},
                                           {CKA_EXPONENT_2, numberOf(key, "rsa-exponent2")},
                                           {CKA_COEFFICIENT, numberOf(key, "rsa-coefficient1")}});
    } else {
      attributes.insert(attributes.end(),
                        {{CKA_EC_PARAMS, curve()}, {CKA_VALUE, numberOf(key, "priv")}});
    }
    return attributes;
  }

  TemporaryFolder folder_;
  std::map<std::string, Made> tokens_;
};

}  // namespace fakes
