#pragma once

#include <filesystem>
#include <fstream>

#include "base/Files.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "fakes/FakeAccounts.hpp"
#include "fakes/FakeNetwork.hpp"
#include "fakes/FakeToolRunner.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeKeys.hpp"
#include "requests/RequestProcessor.hpp"
#include "requests/VirtualCard.hpp"

// A processor with as many peers as a test wants. Runs in a sandboxed root.
class Requests : public fakes::LoggedTest {
 public:
  struct Peer {
    QuillWorker::Shared worker;
    std::shared_ptr<fakes::FakeConnection> connection;
  };

  static inline const crypto::Identity kClient = fakes::madeIdentity("RSA", "client");

  Requests() : processor({tools, clock, defaults, accounts, accounts, limits}) {
    for (const char *name : {"far", "far2", "near", "near2"}) {
      actions[name] = [this, name](const auto &json) {
        const auto message = QuillMessage::initWithJSONData(base::viewOf(json));
        takeLogLines();
        actor = name;
        processor.processRequest(message ? &*message : nullptr, at(name).worker);
      };
    }
    actions["proven"] = [this](const auto &peer) { at(peer).worker->isAuthenticated = true; };
    actions["lost"] = [this](const auto &peer) { at(peer).worker->g_inbound_connection.reset(); };
    actions["off"] = [this](const auto &setting) { defaults.values["kfyd/" + setting] = false; };
    actions["tool"] = [this](const auto &lines) {
      tools.answers = {fakes::replacedAll(lines, ";", "\n")};
    };
    actions["sign"] = [this](const auto &peer) {
      transcript.name("~SIGNATURE " +
                      textOf(*kClient.key.signRawPKCS1(*at(peer).worker->challenge)));
    };
    actions["file"] = [](const auto &path) {
      const std::filesystem::path file = base::rooted(path);
      std::filesystem::create_directories(file.parent_path());
      std::ofstream(file).close();
    };
    transcript.takeLines = [this] { return takeLines(); };
    transcript.name("~DER " + textOf(kClient.certificate.der()));
    transcript.name("~HASH " + textOf(kClient.certificate.sha1()));
    transcript.name("~HEXHASH " + encodings::hexString(kClient.certificate.sha1()));
    transcript.name("~KEY " + textOf(hashOf(kClient)));
    transcript.name("~HEXKEY " + encodings::hexString(hashOf(kClient)));
    transcript.name(R"(
~ID 0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0
~REQUEST "type":"request","message_id":"~ID","command"
~RESPONSE "type":"response","message_id":"~ID","status":true,"command"
~BEGINS dbg:Daemon processing request or response | dbg:Message Type: Request | dbg:Command Reply | dbg:Command: QuillCommand
~SENDING kfy:sending message: Status:
~ANSWER \nmessageID: ~ID\n | < [DATA]{"type":"response","command":
~YES "message_id":"~ID","status":true}[ENDDATA]
~NO "message_id":"~ID","status":false}[ENDDATA]
)");
  }
  ~Requests() override {
    processor.removeSmartcard();
    std::filesystem::remove_all(base::rooted("/Library"));
  }

  static Bytes hashOf(const crypto::Identity &identity) {
    return encodings::sha1(*identity.key.publicKey().externalRepresentation());
  }
  // As it stands in a message.
  static std::string textOf(ByteView bytes) {
    return fakes::replacedAll(encodings::base64EncodeBytes(bytes, /*separateLines=*/false), "/",
                              "\\/");
  }
  Peer &at(const std::string &name) {
    const auto found = peers.find(name);
    return found == peers.end() ? peers[name] = peer(name.starts_with("near")) : found->second;
  }
  // Log lines, what was run and sent, and the marker where it has changed.
  std::vector<std::string> takeLines() {
    std::vector<std::string> lines = takeLogLines();
    for (const auto &call : std::exchange(tools.calls, {})) {
      lines.push_back("ran " + call.program + " " + call.arguments.at(0) + " in " +
                      call.workingFolder + " for " + std::to_string(call.limits.time.count()) +
                      " ms");
    }
    for (const auto pause : std::exchange(clock.pauses, {})) {
      lines.push_back("paused " + std::to_string(pause.count()) + " ms");
    }
    for (auto &[name, peer] : peers) {
      for (const std::string &frame : std::exchange(peer.connection->sent, {})) {
        lines.push_back((name == actor ? "" : name + " ") + "< " + frame);
      }
      if (std::exchange(peer.connection->isCancelled, false)) {
        lines.push_back(name + " is cancelled");
      }
      if (peer.worker->challenge) {
        transcript.name("~" + name + "Challenge " + textOf(*peer.worker->challenge));
      }
    }
    for (const std::string &asked : std::exchange(accounts.asked, {})) {
      lines.push_back("asked for " + asked);
    }
    int number = 0;
    for (const std::string &password : std::exchange(accounts.offered, {})) {
      EXPECT_EQ(password.size(), 30U);
      transcript.name("~PASSWORD" + std::to_string(number) + " " + password + "\n~BASE64PASSWORD" +
                      std::to_string(number) + " " + textOf(base::viewOf(password)));
      ++number;
    }
    if (accounts.committed) {
      lines.push_back("set " + *std::exchange(accounts.committed, {}));
    }
    if (std::exchange(wasMarkerThere, isMarkerThere()) != isMarkerThere()) {
      lines.emplace_back(isMarkerThere() ? "card is in" : "card is out");
    }
    return lines;
  }

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

  void process(const QuillMessage &message, const Peer &from) {
    processor.processRequest(&message, from.worker);
  }
  // Sends a request and returns the one answer to it.
  QuillMessage ask(const QuillMessage &message, const Peer &from) {
    process(message, from);
    const std::vector<QuillMessage> messages = from.connection->takeMessages();
    EXPECT_EQ(messages.size(), 1U);
    return messages.empty() ? QuillMessage() : messages.front();
  }

  static bool isMarkerThere() { return base::fileExists(base::rooted(base::kCardMarker)); }

  fakes::Transcript transcript;
  decltype(transcript.actions) &actions = transcript.actions;
  std::map<std::string, Peer> peers;  // of the transcript
  std::string actor;                  // the one of them that has sent last
  bool wasMarkerThere = false;
  fakes::FakeToolRunner tools;
  fakes::FakeAccounts accounts;
  logging::LimitLog limits{clock};
  RequestProcessor processor;
};

// With debug mode on and off.
class RequestsInBothModes : public Requests, public testing::WithParamInterface<bool> {
 public:
  RequestsInBothModes() {
    transcript.isDebugMode = GetParam();
    setDebugMode(GetParam());
  }
};
