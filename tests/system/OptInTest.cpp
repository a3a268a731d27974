// Strangers, as people see them with the tools.

#include <csignal>

#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class OptIn : public Machine {};

TEST_F(OptIn, StrangersAreSeenAndDropped) {
  makeServerIdentity();
  pair(rsaIdentity().key);
  startDaemon();
  Peer client = Peer::remote();
  ASSERT_TRUE(client.authenticate(rsaIdentity()));
  ASSERT_TRUE(client.insert({&rsaIdentity()}));
  write("/etc/keyferry/kfyd.toml",
        "unauthenticatedSeconds = 1\ncardEndsWithItsConnection = true\n");
  Peer stranger = Peer::remote();
  EXPECT_TRUE(stranger.isEnded());
  EXPECT_TRUE(hasLogged("ended: it has not authenticated (limit unauthenticatedSeconds is 1)"));
  EXPECT_TRUE(isMarkerThere());
  EXPECT_TRUE(eventually([] {
    return read("/run/keyferry/state.json").find("unauthenticatedSeconds") != std::string::npos;
  }));
  EXPECT_THAT(succeed("kfyctl", {"status"}),
              AllOf(HasSubstr(": authenticated, 1 certificates"),
                    HasSubstr("limit unauthenticatedSeconds was reached, times: 1")));
  daemon->end(SIGTERM);
  daemon.reset();
  const Outcome after = run("kfyctl", {"status", "--json"});
  EXPECT_EQ(after.status, 3);
  EXPECT_THAT(after.output, AllOf(HasSubstr("stale: told by process"),
                                  HasSubstr("\"stateIsStale\":true,\"state\":{\"started\":")));
}

}  // namespace
}  // namespace system_tests
