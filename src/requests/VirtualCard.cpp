#include "requests/VirtualCard.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <map>

#include "base/Descriptor.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "protocol/Commands.hpp"

namespace requests {

namespace {

void addListHolder(RequestProcessor &processor, const QuillWorker::Shared &worker) {
  std::erase_if(processor.listHolders, [](const auto &holder) { return holder.second.expired(); });
  processor.listHolders.try_emplace(worker->number, worker);
}

}  // namespace

void handleInsert(Request &request) {
  request.reply.status = true;
  if (request.message.certificates) {
    addListHolder(request.processor, request.worker);
    request.processor.certificates = request.message.certificates;
    request.worker->certificates = request.message.certificates;
    request.worker->keysAlike.clear();
  }
  // The end of a local connection never withdraws the card, so a local connection does not become
  // its inserter either.
  if (!request.worker->isLocal) {
    request.processor.cardInserter = request.worker;
  }
  request.processor.insertSmartcard();
  request.worker->sendMessage(request.reply);
}

void handleRemove(Request &request) {
  request.reply.status = true;
  request.processor.removeSmartcard();
  request.worker->sendMessage(request.reply);
}

void handleGetCertificates(Request &request) {
  request.reply.status = true;
  request.reply.certificates = request.processor.certificates;
  protocol::setRequiredEmpty(request.reply);  // in case nobody has inserted a card
  request.worker->sendMessage(request.reply);
}

}  // namespace requests

void RequestProcessor::insertSmartcard() {
  // Deleted first even where it is created again at once: the token driver waits for the marker to
  // go and come back before it reads the certificates anew.
  removeSmartcard();
  // Never follows a link, which somebody else may have put there.
  const base::Descriptor marker(::open(base::rooted(base::kCardMarker).c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
}

void RequestProcessor::removeSmartcard() {
  // By name, and only a file: a folder in the marker's place is left alone.
  ::unlink(base::rooted(base::kCardMarker).c_str());
}
