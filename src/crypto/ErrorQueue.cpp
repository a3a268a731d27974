#include "crypto/ErrorQueue.hpp"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <string>
#include <vector>

namespace crypto {
namespace {

// A copy of an entry: the library overwrites its texts with those of later entries.
struct Entry {
  unsigned long code = 0;
  std::string file;
  int line = 0;
  std::string function;
  std::string data;
  bool hasData = false;
};

std::vector<Entry> takeEntries() {
  std::vector<Entry> entries;
  while (true) {
    Entry entry;
    const char *file = nullptr;
    const char *function = nullptr;
    const char *data = nullptr;
    int flags = 0;
    entry.code = ERR_get_error_all(&file, &entry.line, &function, &data, &flags);
    if (entry.code == 0) {
      return entries;
    }
    entry.file = file == nullptr ? "" : file;
    entry.function = function == nullptr ? "" : function;
    entry.hasData = (flags & ERR_TXT_STRING) != 0 && data != nullptr;
    entry.data = entry.hasData ? data : "";
    entries.push_back(std::move(entry));
  }
}

void putBack(const Entry &entry) {
  ERR_new();
  ERR_set_debug(entry.file.c_str(), entry.line, entry.function.c_str());
  const int library = ERR_GET_LIB(entry.code);
  const int reason = ERR_GET_REASON(entry.code);
  if (entry.hasData) {
    ERR_set_error(library, reason, "%s", entry.data.c_str());
  } else {
    ERR_set_error(library, reason, nullptr);
  }
}

}  // namespace

struct KeptErrorQueue::Entries {
  std::vector<Entry> taken;
  int marks = 0;
};

bool libraryHasEnded() {
  return OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 0;
}

KeptErrorQueue::KeptErrorQueue() {
  if (ERR_peek_error() == 0) {
    return;
  }
  entries_ = std::make_unique<Entries>();
  while (ERR_clear_last_mark() == 1) {
    ++entries_->marks;
  }
  entries_->taken = takeEntries();
}

KeptErrorQueue::~KeptErrorQueue() {
  ERR_clear_error();
  if (!entries_) {
    return;
  }
  for (const Entry &entry : entries_->taken) {
    putBack(entry);
  }
  // Where in the queue a mark stood can't be asked. It was set right before the call in all but odd
  // cases, which is at the end.
  for (int mark = 0; mark < entries_->marks; ++mark) {
    ERR_set_mark();
  }
}

}  // namespace crypto
