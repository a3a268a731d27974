#include "crypto/Pkcs12Rounds.hpp"

#include <openssl/asn1.h>
#include <openssl/x509.h>

#include "crypto/Owned.hpp"
#include "crypto/Pkcs12.hpp"

namespace crypto {

long roundsOf(const ASN1_INTEGER *rounds) {
  if (rounds == nullptr) {
    return 1;  // the default of RFC 7292
  }
  const long count = ASN1_INTEGER_get(rounds);
  return count < 0 || count > kPkcs12Rounds ? kPkcs12Rounds + 1 : count;
}

long roundsOf(const X509_ALGOR *algorithm) {
  const ASN1_OBJECT *object = nullptr;
  int type = 0;
  const void *parameter = nullptr;
  X509_ALGOR_get0(&object, &type, &parameter, algorithm);
  if (type != V_ASN1_SEQUENCE) {
    return 0;
  }
  const ASN1_STRING *sequence = static_cast<const ASN1_STRING *>(parameter);
  if (OBJ_obj2nid(object) != NID_pbes2) {
    const Owned<PBEPARAM, PBEPARAM_free> parameters(
        static_cast<PBEPARAM *>(ASN1_item_unpack(sequence, ASN1_ITEM_rptr(PBEPARAM))));
    return parameters ? roundsOf(parameters->iter) : 0;
  }
  const Owned<PBE2PARAM, PBE2PARAM_free> scheme(
      static_cast<PBE2PARAM *>(ASN1_item_unpack(sequence, ASN1_ITEM_rptr(PBE2PARAM))));
  if (!scheme || OBJ_obj2nid(scheme->keyfunc->algorithm) != NID_id_pbkdf2 ||
      scheme->keyfunc->parameter == nullptr ||
      scheme->keyfunc->parameter->type != V_ASN1_SEQUENCE) {
    return 0;  // scrypt has a bound of the library's own
  }
  const Owned<PBKDF2PARAM, PBKDF2PARAM_free> function(static_cast<PBKDF2PARAM *>(
      ASN1_item_unpack(scheme->keyfunc->parameter->value.sequence, ASN1_ITEM_rptr(PBKDF2PARAM))));
  return function ? roundsOf(function->iter) : 0;
}

}  // namespace crypto
