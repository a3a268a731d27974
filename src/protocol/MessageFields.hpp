#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "protocol/QuillMessage.hpp"

namespace protocol {

// The member of QuillMessage that holds a field. Its type decides the encoding: bytes as Base64
// text with line breaks, texts unchanged, arrays element by element.
using FieldPlace = std::variant<std::optional<Bytes> QuillMessage::*,                           //
                                std::optional<SecretBytes> QuillMessage::*,                     //
                                std::optional<std::string> QuillMessage::*,                     //
                                std::optional<SecretText> QuillMessage::*,                      //
                                std::optional<QuillMessage::CertificateArray> QuillMessage::*,  //
                                QuillMessage::Certificates QuillMessage::*>;

// One optional field on the wire.
struct Field {
  std::string_view key;
  const char *trace;  // when it is read; null: none
  FieldPlace place;
  bool tracedAlways = false;  // the trace comes even if the key is absent
};

inline constexpr Field kCertificateArray{"authentication_certificates", nullptr,
                                         &QuillMessage::certificateArray};
inline constexpr Field kChallenge{"challenge", "QuillChallengeString Received",
                                  &QuillMessage::challenge};
inline constexpr Field kChallengeSignature{"challenge_signature", "challengeSignature Received",
                                           &QuillMessage::challengeSignature};
inline constexpr Field kSelectedCertificateHash{
    "selected_certificate_hash", "selectedCertificateHash Received",
    &QuillMessage::selectedCertificateHash, /*tracedAlways=*/true};
inline constexpr Field kCertificates{"certificates", "certificates Received",
                                     &QuillMessage::certificates};
inline constexpr Field kEphemeralUsername{"ephemeral_user_name", "ephemeralUsername Received",
                                          &QuillMessage::ephemeralUsername};
inline constexpr Field kErrorMessage{"message_error_message", "errorMessage Received",
                                     &QuillMessage::errorMessage};
inline constexpr Field kEphemeralPassword{"ephemeral_user_password", "ephemeralPassword Received",
                                          &QuillMessage::ephemeralPassword};
inline constexpr Field kDataToSign{"data_to_sign", "dataToSign Received",
                                   &QuillMessage::dataToSign};
inline constexpr Field kDataToDecrypt{"encrypted_data", "dataToDecrypt Received",
                                      &QuillMessage::dataToDecrypt};
inline constexpr Field kDecryptedData{"decrypted_data", "decryptedData Received",
                                      &QuillMessage::decryptedData};
inline constexpr Field kObjectID{"object_id", "objectID Received", &QuillMessage::objectID};
inline constexpr Field kPIN{"pin", "QuillPINString Received", &QuillMessage::PIN};
inline constexpr Field kSignedData{"signed_data", "signedData Received", &QuillMessage::signedData};
inline constexpr Field kCertificateUsedToAuthenticate{"selected_authenticate_certificate",
                                                      "certificateUsedToAuthenticate Received",
                                                      &QuillMessage::certificateUsedToAuthenticate};
inline constexpr Field kSigningCertificateHash{"signing_cert_hash",
                                               "QuillSigningCertificateHashString Received",
                                               &QuillMessage::signingCertificateHash};

// In the order in which they are read.
inline constexpr std::array kFieldsAsRead{
    &kCertificateArray,
    &kChallenge,
    &kChallengeSignature,
    &kSelectedCertificateHash,
    &kCertificates,
    &kEphemeralUsername,
    &kErrorMessage,
    &kEphemeralPassword,
    &kDataToSign,
    &kDataToDecrypt,
    &kDecryptedData,
    &kObjectID,
    &kPIN,
    &kSignedData,
    &kCertificateUsedToAuthenticate,
    &kSigningCertificateHash,
};

}  // namespace protocol
