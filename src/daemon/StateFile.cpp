#include "daemon/StateFile.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Files.hpp"
#include "base/FolderForAll.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "protocol/JSONWriter.hpp"
#include "protocol/StateKeys.hpp"

namespace kfyd {
namespace {

namespace keys = protocol::state_keys;
using protocol::JSONWriter;

constexpr std::chrono::seconds kPause{1};
constexpr std::size_t kMostConnections = 1024;
constexpr std::size_t kMostCertificates = 16;

template <typename Number>
void putNumber(JSONWriter &writer, std::string_view key, Number number) {
  writer.key(key);
  writer.raw(std::to_string(number));
}

void putCertificates(JSONWriter &writer, const QuillWorker &worker) {
  writer.key(keys::kCards);
  writer.beginArray();
  if (worker.certificates) {
    const auto entries = worker.certificates->entries();
    for (const protocol::CardEntry &entry :
         entries.first(std::min(entries.size(), kMostCertificates))) {
      writer.text(encodings::hexString(entry.certificateSHA1));
    }
  }
  writer.endArray();
}

void putConnection(JSONWriter &writer, const QuillWorker &worker) {
  const platform::Endpoint peer = worker.g_inbound_connection->peer();
  writer.beginObject();
  writer.key(keys::kAddress);
  writer.text(peer.host);
  putNumber(writer, keys::kPort, peer.port);
  writer.key(keys::kLocal);
  writer.boolean(worker.isLocal);
  writer.key(keys::kAuthenticated);
  writer.boolean(worker.isAuthenticated);
  putCertificates(writer, worker);
  writer.endObject();
}

void putUnpaired(JSONWriter &writer, std::span<const requests::UnpairedDevice> devices) {
  writer.key(keys::kUnpaired);
  writer.beginArray();
  for (const requests::UnpairedDevice &device : devices) {
    writer.beginObject();
    writer.key(keys::kAddress);
    writer.text(device.address);
    writer.key(keys::kPublicKeyHash);
    writer.text(encodings::hexString(device.publicKeyHash));
    putNumber(writer, keys::kLastTried, std::chrono::system_clock::to_time_t(device.lastTried));
    writer.endObject();
  }
  writer.endArray();
}

// Returns how many there are.
std::size_t putConnections(JSONWriter &writer, const std::vector<QuillWorker::Shared> &workers) {
  std::size_t count = 0;
  writer.key(keys::kConnections);
  writer.beginArray();
  for (const bool isLocal : {false, true}) {
    for (const QuillWorker::Shared &worker : workers) {
      if (worker->isLocal != isLocal || !worker->g_inbound_connection) {
        continue;
      }
      ++count;
      if (count <= kMostConnections) {
        putConnection(writer, *worker);
      }
    }
  }
  writer.endArray();
  return count;
}

}  // namespace

StateFile::StateFile(platform::MainQueue &queue, const RequestProcessor &processor)
    : queue_(queue), processor_(processor), started_(processor.platform().clock.now()) {}

void StateFile::begin() {
  isKept_ = true;
  changed();
}

void StateFile::changed() {
  if (isKept_ && !isWaiting_) {
    isWaiting_ = true;
    queue_.postAfter(kPause, [this] { write(); });
  }
}

CleansedBytes StateFile::content() const {
  JSONWriter writer;
  writer.beginObject();
  putNumber(writer, keys::kStarted, std::chrono::system_clock::to_time_t(started_));
  putNumber(writer, keys::kProcess, ::getpid());
  const std::size_t count = putConnections(writer, processor_.workers);
  putNumber(writer, keys::kConnectionCount, count);
  putNumber(writer, keys::kPending, processor_.pendingMessages.size());
  putNumber(writer, keys::kRelays, processor_.counts.relayed);
  putNumber(writer, keys::kRefusals, processor_.counts.refused);
  putUnpaired(writer, processor_.unpairedDevices.devices());
  writer.key(keys::kLimits);
  writer.beginObject();
  for (const auto &[setting, times] : processor_.platform().limits.counts()) {
    putNumber(writer, setting, times);
  }
  writer.endObject();
  writer.endObject();
  return writer.take();
}

void StateFile::write() {
  isWaiting_ = false;
  CleansedBytes now = content();
  if (now == written_ && !hasFailed_) {
    return;
  }
  written_ = std::move(now);
  const std::string path = base::rooted(base::kStateFile);
  Error error;
  const bool isWritten = base::makeFolderForAll(path.substr(0, path.rfind('/')), &error) &&
                         base::replacePassingFile(path, written_, 0600, &error);
  if (!isWritten && !hasFailed_) {
    CVNLog("state for kfyctl is not written: %s", error.description);
  }
  hasFailed_ = !isWritten;
}

}  // namespace kfyd
