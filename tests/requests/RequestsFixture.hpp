#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "crypto/Certificate.hpp"
#include "fakes/FakeAccounts.hpp"
#include "fakes/FakeNetwork.hpp"
#include "fakes/FakeToolRunner.hpp"
#include "fakes/LoggedTest.hpp"
#include "protocol/CardList.hpp"
#include "requests/ClientAuthentication.hpp"
#include "requests/RequestProcessor.hpp"
#include "requests/VirtualCard.hpp"
#include "support/HexString.hpp"

// A processor with as many peers as a test wants. Runs in a sandboxed root.
class Requests : public fakes::LoggedTest {
 public:
  struct Peer {
    QuillWorker::Shared worker;
    std::shared_ptr<fakes::FakeConnection> connection;

    // The one message that this peer was sent since the last call.
    [[nodiscard]] QuillMessage answer() const {
      std::vector<QuillMessage> messages = connection->takeMessages();
      EXPECT_EQ(messages.size(), 1U);
      return messages.empty() ? QuillMessage() : messages.front();
    }
  };

  Requests() : processor({tools, clock, defaults, accounts, accounts, limits}) {}
  ~Requests() override { std::filesystem::remove_all(base::rooted("/Library")); }

  Peer peer(bool isLocal) {
    Peer made{QuillWorker::initWithReceiveBlock({}, [](const auto &, const auto &) {}),
              std::make_shared<fakes::FakeConnection>()};
    made.worker->isLocal = isLocal;
    made.worker->startConnection(made.connection);
    processor.workers.push_back(made.worker);
    return made;
  }
  Peer remote() { return peer(/*isLocal=*/false); }
  Peer local() { return peer(/*isLocal=*/true); }

  // Inserts a card with these certificates, and with an element that describes nothing.
  static QuillMessage insertOf(const std::vector<Bytes> &certificates) {
    std::vector<protocol::CardElement> elements{Bytes{1}};
    for (const Bytes &der : certificates) {
      elements.emplace_back(
          support::CertificateInfo{support::base64EncodeBytes(der, /*separateLines=*/false), true,
                                   true, true, "", std::nullopt});
    }
    return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
        protocol::makeCardList(elements));
  }

  void process(const QuillMessage &message, const Peer &from) {
    processor.processRequest(&message, from.worker);
  }
  // Sends a request and returns the answer to it.
  QuillMessage ask(const QuillMessage &message, const Peer &from) {
    process(message, from);
    QuillMessage answer = from.answer();
    EXPECT_EQ(answer.messageType, QuillMessageTypeResponse);
    EXPECT_EQ(answer.command, message.command);
    EXPECT_EQ(answer.messageID, message.messageID);
    return answer;
  }

  static bool isMarkerThere() { return base::fileExists(base::rooted(requests::kCardMarker)); }

  fakes::FakeToolRunner tools;
  fakes::FakeAccounts accounts;
  support::LimitLog limits{clock};
  RequestProcessor processor;
};
