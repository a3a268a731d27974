#include "protocol/CardList.hpp"

#include <algorithm>
#include <boost/json.hpp>
#include <string_view>
#include <utility>

#include "base/Secret.hpp"
#include "encodings/HexString.hpp"
#include "protocol/JSONWriter.hpp"

namespace protocol {
namespace {

namespace json = boost::json;

bool booleanUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  return value != nullptr && value->is_bool() && value->get_bool();
}

std::optional<std::string> textUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  const json::string *text = value == nullptr ? nullptr : value->if_string();
  return text == nullptr ? std::nullopt : std::optional(std::string(std::string_view(*text)));
}

// Makes the list entry for an element.
struct EntryMaker {
  CardEntry operator()(const Bytes &bytes) const {
    return entryOf([&](JSONWriter &writer) { writer.base64(bytes, /*separateLines=*/false); });
  }
  CardEntry operator()(const encodings::CertificateInfo &info) const {
    CardEntry entry = entryOf([&](JSONWriter &writer) { write(writer, info); });
    entry.hasCertificate = true;
    entry.certificateSHA1 = certificateSHA1In(info.certificate);
    return entry;
  }

 private:
  template <typename Write>
  static CardEntry entryOf(Write write) {
    JSONWriter writer;
    write(writer);
    CardEntry entry;
    entry.json = base::textOf(writer.take());
    return entry;
  }
  static void write(JSONWriter &writer, const encodings::CertificateInfo &info) {
    writer.beginObject();
    writer.key("certificate");
    writer.text(info.certificate);
    writer.key("canSign");
    writer.boolean(info.canSign);
    writer.key("canDecrypt");
    writer.boolean(info.canDecrypt);
    writer.key("canUnwrap");
    writer.boolean(info.canUnwrap);
    writer.key("label");
    writer.text(info.label);
    if (info.publicKeyHash) {
      writer.key("publicKeyHash");
      writer.text(*info.publicKeyHash);
    }
    writer.endObject();
  }
};

CardList::Beginning beginningOf(ByteView digest) {
  CardList::Beginning beginning{};
  std::ranges::copy(digest.first(std::min(digest.size(), beginning.size())), beginning.begin());
  return beginning;
}

}  // namespace

CardList::CardList(std::vector<CardEntry> entries) : entries_(std::move(entries)) {
  for (std::size_t position = 0; position < entries_.size(); ++position) {
    const CardEntry &entry = entries_[position];
    bytes_ += sizeof(CardEntry) + entry.json.capacity() + entry.certificateSHA1.capacity();
    if (!entry.certificateSHA1.empty()) {
      byDigest_.emplace_back(beginningOf(entry.certificateSHA1), position);
    } else if (entry.hasCertificate) {
      unusable_.push_back(position);
    }
  }
  std::ranges::sort(byDigest_);
  bytes_ += byDigest_.capacity() * sizeof(byDigest_.front());
}

std::optional<std::size_t> CardList::find(ByteView certificateSHA1) const {
  const Beginning beginning = beginningOf(certificateSHA1);
  auto place = std::ranges::lower_bound(byDigest_, std::pair(beginning, std::size_t{0}));
  for (; place != byDigest_.end() && place->first == beginning; ++place) {
    if (base::equal(entries_[place->second].certificateSHA1, certificateSHA1)) {
      return place->second;
    }
  }
  return std::nullopt;
}

std::size_t CardList::unusableBefore(std::size_t position) const {
  return static_cast<std::size_t>(std::ranges::lower_bound(unusable_, position) -
                                  unusable_.begin());
}

Bytes certificateSHA1In(std::string_view text) {
  const Bytes der = encodings::dataFromBase64String(text);
  return der.empty() ? Bytes{} : encodings::sha1(der);
}

std::shared_ptr<const CardList> makeCardList(std::span<const CardElement> elements) {
  std::vector<CardEntry> entries;
  entries.reserve(elements.size());
  for (const CardElement &element : elements) {
    entries.push_back(std::visit(EntryMaker{}, element));
  }
  return std::make_shared<const CardList>(std::move(entries));
}

std::optional<encodings::CertificateInfo> certificateInfoIn(const CardEntry &entry) {
  json::error_code code;
  const json::value value = json::parse(entry.json, code);
  const json::object *dictionary = code ? nullptr : value.if_object();
  if (dictionary == nullptr || !entry.hasCertificate) {
    return std::nullopt;
  }
  return encodings::CertificateInfo{textUnder(*dictionary, "certificate").value_or(""),
                                    booleanUnder(*dictionary, "canSign"),
                                    booleanUnder(*dictionary, "canDecrypt"),
                                    booleanUnder(*dictionary, "canUnwrap"),
                                    textUnder(*dictionary, "label").value_or(""),
                                    textUnder(*dictionary, "publicKeyHash")};
}

std::vector<encodings::CertificateInfo> certificateInfosOf(const CardList &list) {
  std::vector<encodings::CertificateInfo> infos;
  for (const CardEntry &entry : list.entries()) {
    if (auto info = certificateInfoIn(entry)) {
      infos.push_back(std::move(*info));
    }
  }
  return infos;
}

std::string logText(const CardList &list, std::size_t most) {
  std::string text = "(";
  for (const CardEntry &entry : list.entries()) {
    if (text.size() > most) {
      break;
    }
    text += (text.size() > 1 ? ", " : "") + entry.json;
  }
  return text + ")";
}

}  // namespace protocol
