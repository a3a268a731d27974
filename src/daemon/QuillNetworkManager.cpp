#include "daemon/QuillNetworkManager.hpp"

#include <algorithm>
#include <cerrno>

#include "base/Places.hpp"
#include "daemon/NetworkLimits.hpp"
#include "daemon/TokenPin.hpp"
#include "encodings/HexString.hpp"
#include "identity/PinnedCertificate.hpp"
#include "logging/CVNLog.hpp"
#include "logging/StandardErrorLines.hpp"
#include "logging/UnauthenticatedLines.hpp"
#include "settings/Settings.hpp"
#include "worker/ConnectionLines.hpp"

namespace {

constexpr std::string_view kSettingsDomain = "com.corvane.kfyd";
constexpr const char *kAllAddresses = "::";
constexpr const char *kLoopbackAddress = "127.0.0.1";
constexpr int kKeepaliveSeconds = 15;
constexpr int kKeepaliveProbes = 15;

std::optional<QuillNetworkManager::ManagerPlatform> &processPlatform() {
  static std::optional<QuillNetworkManager::ManagerPlatform> platform;
  return platform;
}

// Clients on this machine pin the published certificate. A failure affects only them.
void publish(const crypto::Certificate &certificate) {
  Error error;
  if (!identity::publishPinnedCertificate(certificate, &error)) {
    CVNLog("certificate for local clients not published: %@", error.description);
  }
}

}  // namespace

QuillNetworkManager::QuillNetworkManager(const ManagerPlatform &platform)
    : RequestProcessor(platform.processing),
      platform_(platform),
      localUsers_(platform.processing.defaults),
      authenticationTime_(platform.queue, platform.processing.defaults, platform.processing.limits,
                          workers),
      state_(platform.queue, *this) {
  platform.processing.limits.setObserver([this] { state_.changed(); });
}

QuillNetworkManager::~QuillNetworkManager() {
  platform_.processing.limits.setObserver(nullptr);
}

void QuillNetworkManager::usePlatform(const ManagerPlatform &platform) {
  processPlatform().emplace(platform);
}

QuillNetworkManager &QuillNetworkManager::manager() {
  // Never destroyed: other static objects may end before it.
  static auto &shared = *new QuillNetworkManager(processPlatform().value());  // NOLINT: see above
  return shared;
}

bool QuillNetworkManager::setupListener() {
  CVNLogDebug("setting up listener");
  const bool isSetUp = setupListenerOnPort(
      base::kPublicPort, "::", /*localOnly=*/false, [] { CVNLogDebug("Local Listener Started"); },
      [] { CVNLogDebug("local Listener setup complete"); });
  if (!isSetUp) {
    CVNLog("listener could not be set up.");
  }
  return isSetUp;
}

bool QuillNetworkManager::setupLocalListener() {
  CVNLogDebug("setting up local listener");
  const bool isSetUp = setupListenerOnPort(
      base::kLoopbackPort, "::", /*localOnly=*/true, [] { CVNLogDebug("Local Listener Started"); },
      [] { CVNLogDebug("local Listener setup complete"); });
  if (!isSetUp) {
    CVNLog("local listener could not be set up.");
  }
  return isSetUp;
}

bool QuillNetworkManager::setupListenerOnPort(std::int32_t port,
                                              const std::string & /*bonjourName*/, bool localOnly,
                                              const std::function<void()> & /*connectionStarted*/,
                                              const std::function<void()> & /*completedBlock*/) {
  if (localOnly) {
    CVNLogDebug("Setting up local listener");
  } else {
    CVNLogDebug("Setting up listener");
  }
  std::unique_ptr<platform::Listener> &place = localOnly ? localListener : listener;
  place = createAndStartListenerWithName(/*name=*/std::nullopt, std::to_string(port), localOnly);
  return place != nullptr;
}

std::unique_ptr<platform::Listener> QuillNetworkManager::createAndStartListenerWithName(
    const std::optional<std::string> &name, const std::string &port, bool localOnly) {
  CVNLogDebug("create and start listener");
  workers.clear();
  const CVNKeychain::IdentityReference identity = findServerIdentity();
  if (!identity) {
    return nullptr;
  }
  publish(identity->certificate);

  platform::ListenerParameters parameters;
  parameters.host = localOnly ? kLoopbackAddress : name.value_or(kAllAddresses);
  parameters.port = port;
  parameters.identity = identity;
  parameters.keepaliveIdleSeconds = kKeepaliveSeconds;
  parameters.keepaliveIntervalSeconds = kKeepaliveSeconds;
  parameters.keepaliveCount = kKeepaliveProbes;
  parameters.isLoopback = localOnly;
  parameters.limits = [this, localOnly] { return limitsOf(localOnly); };
  std::unique_ptr<platform::Listener> created = platform_.network.createListener(parameters);
  created->setStateHandler(
      [this, self = created.get()](platform::ListenerState state, int errorNumber) {
        listenerChanged(self->port(), state, errorNumber);
      });
  created->setConnectionHandler(
      [this, localOnly](const std::shared_ptr<platform::Connection> &connection) {
        accept(connection, localOnly);
      });
  created->setFailedHandshakeHandler([localOnly](const platform::Endpoint &peer, int errorNumber) {
    const logging::UnauthenticatedLines lines(!localOnly);
    worker::warnConnectionFailed(peer, errorNumber);
  });
  created->start();
  return created;
}

void QuillNetworkManager::listenerChanged(std::uint16_t port, platform::ListenerState state,
                                          int errorNumber) {
  switch (state) {
    case platform::ListenerState::waiting:
      logging::printToStandardError("Listener on port %u (%s) waiting\n", port, "tcp");
      break;
    case platform::ListenerState::ready:
      logging::printToStandardError("Listener on port %u (%s) ready!\n", port, "tcp");
      state_.begin();
      // A kfyd that was killed has left its marker. The kfyd with the loopback port is responsible
      // for the card, and nobody can have inserted one yet.
      if (port == base::kLoopbackPort) {
        removeSmartcard();
      }
      break;
    case platform::ListenerState::failed:
      logging::warn(errorNumber, "listener (%s) failed", "tcp");
      if (errorNumber == EADDRINUSE) {
        CVNLog(
            "port %u is taken by %s: nobody reaches this kfyd there; end that program, then "
            "restart kfyd",
            port, platform_.network.ownerOfPort(port).value_or("another program"));
      }
      break;
    case platform::ListenerState::cancelled:
      break;
  }
}

CVNKeychain::IdentityReference QuillNetworkManager::findServerIdentity() const {
  platform::UserDefaults &defaults = platform_.processing.defaults;
  const CVNKeychain keychain(platform_.store, platform_.tokens, defaults);
  const auto hashText = defaults.text(kSettingsDomain, "ssl_certificate_sha1_hash");
  const auto name = defaults.text(kSettingsDomain, "ssl_certificate_common_name");
  const auto pin = kfyd::tlsTokenPin(defaults);
  if (hashText && !hashText->empty()) {
    const std::optional<Bytes> hash = encodings::dataWithHexString(*hashText);
    auto identity =
        keychain.findIdentityWithSHA1Hash(hash.value_or(Bytes{}), /*tokenOnly=*/false, pin);
    if (!identity) {
      CVNLog("SSL identity not found with sha1 hash of %@. exiting",
             hash ? std::optional(encodings::hexString(*hash)) : std::nullopt);
    }
    return identity;
  }
  if (!name || name->empty()) {
    CVNLog("SSL identity not specified");
    return nullptr;
  }
  auto identity = keychain.findIdentityWithSubjectName(*name, /*tokenOnly=*/false, pin);
  if (!identity) {
    CVNLog("SSL identity not found with name of %@. exiting", *name);
  }
  return identity;
}

platform::ListenerLimits QuillNetworkManager::limitsOf(bool isLoopback) {
  platform::ListenerLimits limits = kfyd::listenerLimits(platform_.processing.defaults, isLoopback);
  if (isLoopback) {
    limits.users = localUsers_.allowed();
  }
  return limits;
}

void QuillNetworkManager::accept(const std::shared_ptr<platform::Connection> &connection,
                                 bool isLocal) {
  forgetDeadWorkers();
  const QuillWorker::Shared worker = QuillWorker::initWithReceiveBlock(
      [this](const QuillWorker::Shared &from, const QuillMessage &message) {
        received(&message, from);
      },
      [this](const QuillWorker::Shared &from, const std::optional<std::string> &error) {
        disconnected(from, error);
      });
  worker->postDisconnected = [this](const QuillWorker::Shared &from) {
    connectionDisconnected(from);
  };
  worker->mayBringList = [this](const QuillWorker &from) { return mayInsert(from); };
  worker->isLocal = isLocal;
  if (!isLocal) {
    authenticationTime_.begin();
  }
  worker->startConnection(connection);
  worker->receiveLoopWithConnection(connection);
  workers.push_back(worker);  // a worker that learns of its end
  state_.changed();
}

// A worker whose connection the daemon has cancelled stays registered. It is removed once nothing
// waits for it, so that failed authentications do not accumulate.
void QuillNetworkManager::forgetDeadWorkers() {
  const auto isDead = [](const QuillWorker::Shared &worker) {
    return !worker->g_inbound_connection;
  };
  if (std::ranges::any_of(workers, isDead)) {
    pendingMessages.eraseAbandoned();
  }
  std::erase_if(workers, [&](const QuillWorker::Shared &worker) {
    return isDead(worker) && !pendingMessages.name(worker);
  });
}

void QuillNetworkManager::received(const QuillMessage *message, const QuillWorker::Shared &worker) {
  if (message == nullptr) {
    CVNLogDebug("received message is blank");
    return;
  }
  CVNLogDebug("Got message: %s", *message);
  processRequest(message, worker);
  state_.changed();
}

void QuillNetworkManager::disconnected(const QuillWorker::Shared &worker,
                                       const std::optional<std::string> &error) {
  if (withdrawsCard(worker)) {
    CVNLog("worker is not local removing smartcard");
    removeSmartcard();
  }
  CVNLogDebug("client disconnected:%s", error);
  state_.changed();
}

// True if the end of this connection withdraws the card.
bool QuillNetworkManager::withdrawsCard(const QuillWorker::Shared &worker) const {
  if (worker->isLocal) {
    return false;
  }
  return cardInserter.lock() == worker ||
         !settings::isOn(settings::kCardEndsWithItsConnection, platform_.processing.defaults);
}

// The observer of "CVNNotificationConnectionDisconnected".
void QuillNetworkManager::connectionDisconnected(const QuillWorker::Shared &worker) {
  pendingMessages.eraseAllOf(worker);
  std::erase(workers, worker);
}
