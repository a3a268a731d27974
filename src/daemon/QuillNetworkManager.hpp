#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "daemon/AuthenticationTime.hpp"
#include "daemon/LocalUsers.hpp"
#include "daemon/StateFile.hpp"
#include "identity/CVNKeychain.hpp"
#include "platform/MainQueue.hpp"
#include "platform/Network.hpp"
#include "platform/UserDefaults.hpp"
#include "requests/RequestProcessor.hpp"

// The two TLS listeners and the registry of their connections: a public one on port 4116 for the
// remote client, a loopback one on port 4117 for the token driver and local tools.
class QuillNetworkManager : public RequestProcessor {
 public:
  // What the manager needs of the platform. The references outlive it.
  struct ManagerPlatform {
    RequestProcessor::Platform processing;
    platform::Network &network;
    platform::ItemStore &store;
    platform::TokenWatcher &tokens;
    platform::MainQueue &queue;
  };

  // Everything but tests uses manager().
  explicit QuillNetworkManager(const ManagerPlatform &platform);
  ~QuillNetworkManager() override;
  QuillNetworkManager(const QuillNetworkManager &) = delete;
  QuillNetworkManager &operator=(const QuillNetworkManager &) = delete;

  // The process's one manager. The first call makes it, with the platform given to usePlatform.
  [[nodiscard]] static QuillNetworkManager &manager();
  static void usePlatform(const ManagerPlatform &platform);

  // Set up the public and the loopback listener. False, with a log line, if there is no TLS
  // identity. A port that is in use is reported later, as a state of the listener.
  [[nodiscard]] bool setupListener();
  [[nodiscard]] bool setupLocalListener();

  // The Bonjour name and the two callbacks are not passed on.
  [[nodiscard]] bool setupListenerOnPort(std::int32_t port, const std::string &bonjourName,
                                         bool localOnly,
                                         const std::function<void()> &connectionStarted,
                                         const std::function<void()> &completedBlock);

  // A started listener, or null, with a log line, if no TLS identity was found. `name`, if given,
  // is the host that a public listener binds to. Forgets all workers.
  [[nodiscard]] std::unique_ptr<platform::Listener> createAndStartListenerWithName(
      const std::optional<std::string> &name, const std::string &port, bool localOnly);

  std::unique_ptr<platform::Listener> listener;
  std::unique_ptr<platform::Listener> localListener;

 private:
  [[nodiscard]] CVNKeychain::IdentityReference findServerIdentity() const;
  [[nodiscard]] platform::ListenerLimits limitsOf(bool isLoopback);
  void listenerChanged(std::uint16_t port, platform::ListenerState state, int errorNumber);
  void accept(const std::shared_ptr<platform::Connection> &connection, bool isLocal);
  void forgetDeadWorkers();
  void received(const QuillMessage *message, const QuillWorker::Shared &worker);
  void disconnected(const QuillWorker::Shared &worker, const std::optional<std::string> &error);
  [[nodiscard]] bool withdrawsCard(const QuillWorker::Shared &worker) const;
  void connectionDisconnected(const QuillWorker::Shared &worker);

  ManagerPlatform platform_;
  kfyd::LocalUsers localUsers_;
  kfyd::AuthenticationTime authenticationTime_;
  kfyd::StateFile state_;
};
