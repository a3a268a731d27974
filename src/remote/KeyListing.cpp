#include "remote/KeyListing.hpp"

#include "base/DisplayText.hpp"
#include "base/Secret.hpp"
#include "encodings/HexString.hpp"
#include "protocol/JSONWriter.hpp"

namespace remote {
namespace {

void member(protocol::JSONWriter &writer, std::string_view name, std::string_view value) {
  writer.key(name);
  writer.text(value);
}

std::string typeOf(const CardKey &key) {
  return key.identity.key.publicKey().description();
}

}  // namespace

std::vector<std::string> keyListing(const std::string &authenticationKeyPath,
                                    ByteView authenticationKeyHash, const KeyRing &keys) {
  std::vector<std::string> lines{
      "pair this key: " + encodings::hexString(authenticationKeyHash),
      "  authenticates only, never inserted; kept in " + authenticationKeyPath};
  for (const CardKey &key : keys.keys()) {
    lines.insert(lines.end(), {"inserted: " + key.label, "  type              " + typeOf(key),
                               "  certificate SHA-1 " + encodings::hexString(key.certificateSHA1),
                               "  public-key hash   " + encodings::hexString(key.publicKeyHash)});
  }
  return lines;
}

std::string keyListingAsJSON(const std::string &authenticationKeyPath,
                             ByteView authenticationKeyHash, const KeyRing &keys) {
  protocol::JSONWriter writer;
  writer.beginObject();
  writer.key("authentication");
  writer.beginObject();
  member(writer, "publicKeyHash", encodings::hexString(authenticationKeyHash));
  member(writer, "path", authenticationKeyPath);
  writer.endObject();
  writer.key("keys");
  writer.beginArray();
  for (const CardKey &key : keys.keys()) {
    writer.beginObject();
    member(writer, "label", key.label);
    member(writer, "type", typeOf(key));
    member(writer, "certificateSHA1", encodings::hexString(key.certificateSHA1));
    member(writer, "publicKeyHash", encodings::hexString(key.publicKeyHash));
    writer.endObject();
  }
  writer.endArray();
  writer.endObject();
  return std::string(base::textOf(base::displayJSON(writer.take())));
}

}  // namespace remote
