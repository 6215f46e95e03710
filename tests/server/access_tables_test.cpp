// The user and secure-path tables and the per-connection operations.
#include <gtest/gtest.h>

#include "runtime/failure.h"
#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using AccessTablesTest = ServerFixture;

TEST_F(AccessTablesTest, UserListPositionsAndLookup) {
  EXPECT_EQ(server->UsersCount(), 0);
  EXPECT_TRUE(server->UsersAdd(u"user:pass").IsEmpty());
  server->UsersAdd(u"admin:admin");
  server->UsersAdd(u"user:pass");  // duplicates are not checked
  EXPECT_EQ(server->UsersCount(), 3);

  // Out of range: Empty, and delete changes nothing.
  EXPECT_TRUE(server->UsersGet(0).IsEmpty());
  EXPECT_TRUE(server->UsersGet(4).IsEmpty());
  server->UsersDelete(0);
  server->UsersDelete(4);
  EXPECT_EQ(server->UsersCount(), 3);
  // Later entries move up.
  server->UsersDelete(1);
  EXPECT_EQ(Utf8(server->UsersGet(1)), "admin:admin");
  EXPECT_EQ(server->UsersCount(), 2);

  // Both sides upper-cased, compared as one text.
  EXPECT_TRUE(server->UsersFindIfIsIn(u"USER:PASS"));
  EXPECT_TRUE(server->UsersFindIfIsIn(u"Admin:ADMIN"));
  EXPECT_FALSE(server->UsersFindIfIsIn(u"user"));
  EXPECT_FALSE(server->UsersFindIfIsIn(u"user:pass "));
  EXPECT_FALSE(server->UsersFindIfIsIn(u""));
}

TEST_F(AccessTablesTest, SecurePathsArePrefixPatterns) {
  server->SecurePathAdd(u"/admin");
  // Prefix without regard to case, and with no directory boundary.
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"/ADMIN/x"));
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"/administrator/"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"/adm"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"/x/admin/"));

  // Pattern characters in an entry act as patterns; a broken pattern fails
  // only its own entry and the search goes on.
  server->SecurePathAdd(u"/r[");
  server->SecurePathAdd(u"/v#/");
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"/v2/x"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"/vx/"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"/r[/"));
  EXPECT_EQ(server->SecurePathCount(), 3);

  // "/" covers every path with a leading slash, "" every path.
  server->SecurePathAdd(u"/");
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"/anything"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"no-slash"));
  server->SecurePathAdd(u"");
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"no-slash"));
  EXPECT_EQ(Utf8(server->SecurePathGet(5)), "");
  EXPECT_TRUE(server->SecurePathGet(5).IsString());
}

TEST_F(AccessTablesTest, ProcesoOperationsBeforeAndAfterStart) {
  // Before the first start: element 0 passes the bounds check, the arrays do not exist.
  EXPECT_EQ(server->ProcesoStatus_Code(0), kSocketClosed);
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0);
  EXPECT_THROW(server->Proceso_Receive(0), RuntimeError);
  EXPECT_THROW(server->Proceso_KeepOpen(0), RuntimeError);
  server->Proceso_KeepOpen(0, true);  // swallowed
  EXPECT_TRUE(server->Proceso_Receive(1).IsEmpty());

  Start(8080, 5);
  EXPECT_FALSE(server->Proceso_KeepOpen(0));
  // Out of range: nothing happens and nothing is reported.
  server->Proceso_Send(9, u"x");
  server->Proceso_Send(-1, u"x");
  EXPECT_FALSE(server->Proceso_KeepOpen(9));
  EXPECT_TRUE(server->ProcesoStatus_String(6).IsEmpty());
  EXPECT_EQ(Utf8(server->ProcesoStatus_String(3)), "Closed");
  EXPECT_TRUE(reports.empty());
  // A closed slot within range: the failure of Send reaches the host.
  EXPECT_THROW(server->Proceso_Send(2, u"x"), RuntimeError);

  // Proceso_Close on a free slot returns at once, with no pause.
  const double before = sim.loop.Elapsed();
  server->Proceso_Close(2);
  EXPECT_EQ(sim.loop.Elapsed(), before);
}

TEST_F(AccessTablesTest, ReceiveHandsOutTextOnce) {
  Start(8080, 2);
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    server->Proceso_KeepOpen(idx, true);
    response = u"open\r\n";
  };
  auto peer = Request("GET /chat HTTP/1.0\r\n\r\n", 1.0);
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(peer->Received()), "open\r\n");
  peer->Write(u"hello", sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(2);
  EXPECT_EQ(Utf8(server->Proceso_Receive(1)), "hello");
  EXPECT_EQ(Utf8(server->Proceso_Receive(1)), "");
  server->Proceso_Send(1, u"more");
  sim.loop.RunFor(1);
  EXPECT_EQ(Utf8(peer->Received()), "open\r\nmore");
  EXPECT_FALSE(peer->ClosedByServer());
  EXPECT_EQ(server->ProcesoStatus_Code(1), kSocketConnected);
  // Ending the channel: keep-open off, a last send, and its Done closes.
  server->Proceso_KeepOpen(1, false);
  server->Proceso_Send(1, u"bye");
  sim.loop.RunFor(3);
  EXPECT_TRUE(peer->ClosedByServer());
  EXPECT_EQ(Utf8(peer->Received()), "open\r\nmorebye");
}

}  // namespace
}  // namespace varnek::testing
