#include "requests/ScreenSharingPassword.hpp"

#include <cstdlib>
#include <string>
#include <string_view>

#include "base/Secret.hpp"
#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "requests/DSQueryable.hpp"

namespace requests {
namespace {

constexpr std::string_view kAlphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&()_+=}{][";
constexpr std::int64_t kPasswordLength = 30;
constexpr int kPasswords = 10;

constexpr const char *kRight = "system.privilege.admin";
constexpr std::uint32_t kInteractionAllowed = 1;
constexpr std::uint32_t kExtendRights = 2;
constexpr std::uint32_t kPreAuthorize = 16;

void setFailure(QuillMessage &reply, const char *text) {
  reply.status = false;
  reply.errorMessage = text;
  reply.ephemeralPassword = SecretText{};
  nameScreenSharingAccount(reply);
}

// The steps that block.

std::shared_ptr<platform::DirectoryRecord> findRecord(const RequestProcessor::Platform &platform) {
  const logging::BlockingStep step;
  return DSQueryable(platform.directory).getLocalRecord(kScreenSharingAccount);
}

bool isAllowed(platform::DirectoryRecord &record, const SecretText &password) {
  const logging::BlockingStep step;
  return record.passwordChangeAllowed(password);
}

bool commit(platform::AccountIdentity &account, const platform::Authorization &authorization) {
  const logging::BlockingStep step;
  return account.commit(authorization);
}

// One attempt: makes a fresh password, checks it against the rules and sets it. True if it was set.
bool setFreshPassword(Request &request, platform::DirectoryRecord &record) {
  const SecretText password = request.processor.randomAlphanumericStringWithLength(kPasswordLength);
  if (!isAllowed(record, password)) {
    CVNLog("password not allowed.");
    return false;
  }
  std::string encoded = encodings::base64EncodedString(base::viewOf(password.reveal()));
  request.reply.ephemeralPassword = SecretText(encoded);
  base::cleanse(encoded.data(), encoded.size());
  nameScreenSharingAccount(request.reply);
  CVNLogDebug("setting password for screen sharing");
  if (!request.processor.changeTokenUserPassword(password)) {
    CVNLog("rejected password. trying again.");
    return false;
  }
  return true;
}

// An authorization with the administrator's right; null, with a log line, if it is not granted.
std::unique_ptr<platform::Authorization> authorize(platform::Accounts &accounts) {
  std::int32_t status = 0;
  auto authorization = accounts.createAuthorization(status);
  if (status != 0) {
    logging::logToFileAlone("Error Creating Initial Authorization: " + std::to_string(status));
    return nullptr;
  }
  status = authorization->copyRight(kRight, kInteractionAllowed | kExtendRights | kPreAuthorize);
  if (status != 0) {
    logging::logToFileAlone("Copy Rights Unsuccessful: " + std::to_string(status));
    return nullptr;
  }
  return authorization;
}

}  // namespace

void nameScreenSharingAccount(QuillMessage &reply) {
  reply.ephemeralUsername = kScreenSharingAccount;
}

void handleCreateUser(Request &request) {
  const auto record = findRecord(request.processor.platform());
  if (!record) {
    setFailure(request.reply, "The screen sharing user does not exist");
    request.worker->sendMessage(request.reply);
    return;
  }
  request.reply.status = false;
  for (int attempt = 0; attempt < kPasswords && !request.reply.status; ++attempt) {
    request.reply.status = setFreshPassword(request, *record);
  }
  if (!request.reply.status) {
    setFailure(request.reply, "Could not set password for screen sharing user");
  }
  request.worker->sendMessage(request.reply);
}

}  // namespace requests

SecretText RequestProcessor::randomAlphanumericStringWithLength(std::int64_t length) const {
  CleansedBytes text;
  for (std::int64_t count = 0; count < length; ++count) {
    text.push_back(
        static_cast<std::uint8_t>(requests::kAlphabet[arc4random() % requests::kAlphabet.size()]));
  }
  return SecretText(std::move(text));
}

bool RequestProcessor::changeTokenUserPassword(const SecretText &password) const {
  CVNLogDebug("changing token user password");
  const auto authorization = requests::authorize(platform_.accounts);
  if (!authorization) {
    return false;
  }
  const auto account = platform_.accounts.identityWithName(requests::kScreenSharingAccount);
  if (!account) {
    CVNLogDebug("could not find the cvnkfyvncuser. please verify the user exists");
    return false;
  }
  if (account->accountClass() != platform::kUserClass) {
    CVNLogDebug("wrong user type");
    return false;
  }
  account->setPassword(password);
  const bool isCommitted = requests::commit(*account, *authorization);
  CVNLogDebug("changing token user password returnStatus: %i", isCommitted ? 1 : 0);
  // In clear text: debug mode is known to show it.
  CVNLogDebug("changing token user password: %@", password.reveal());
  CVNLogDebug("changing token user password completed");
  return isCommitted;
}
