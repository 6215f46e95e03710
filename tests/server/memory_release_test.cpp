// What a served request leaves behind in the server: its records go once the
// host's event has read them, and a restart gives every slot empty arrays.
#include <gtest/gtest.h>

#include "tests/server/server_fixture.h"
#include "varnek/adds/adds.h"

namespace varnek::testing {
namespace {

using MemoryRelease = ServerFixture;

TEST_P(MemoryRelease, RequestRecordsLastOnlyUntilTheEventReturns) {
  Start();
  const std::string big(200000, 'x');
  std::string seen_in_event;
  server->POSTReceived = [&](Variant&, Variant&, Collection&, Collection&, Variant&,
                             Variant& response, Variant&, Collection&, Collection&) {
    seen_in_event = Utf8(server->adds().Script_RetornaContenidoVariable(Variant(u"a")));
    response = u"ok";
  };
  auto peer = Request("POST /f HTTP/1.0\r\nContent-Length: 200002\r\n\r\na=" + big);
  sim.loop.RunFor(4);
  ASSERT_TRUE(peer->ClosedByServer());
  EXPECT_EQ(TextToBytes(peer->Received()), "ok");
  EXPECT_EQ(seen_in_event, big);  // the host reads the form's record in its event
  Adds& adds = server->adds();
  ASSERT_TRUE(adds.ScriptSecuencia().has_value());
  EXPECT_EQ(adds.ScriptSecuencia()->size(), 1u);  // the placeholder alone afterwards
  EXPECT_TRUE(adds.Script_RetornaContenidoVariable(Variant(u"a")).IsEmpty());
  EXPECT_TRUE(adds.Script_RetornaVariableIndex(Variant::Long(1)).IsEmpty());
}

TEST_P(MemoryRelease, RestartGivesEverySlotEmptyArraysUpToTheNewCount) {
  Start(8080, 4);
  for (int32_t i = 1; i <= 4; ++i) server->Proceso_KeepOpen(Variant::Long(i), true);
  for (int32_t slots : {4, 2, 6}) {
    server->MaxConcurrentConnections(Variant::Long(slots));
    server->ServerOpen(true);
    for (int32_t i = 0; i <= slots; ++i) {
      EXPECT_FALSE(server->Proceso_KeepOpen(Variant::Long(i))) << slots << " slots, slot " << i;
      EXPECT_EQ(Utf8(server->Proceso_Receive(Variant::Long(i))), "")
          << slots << " slots, slot " << i;
    }
    server->Proceso_KeepOpen(Variant::Long(slots), true);  // left set for the next round
  }
}

VARNEK_BOTH_LOOP_MODES(MemoryRelease);

}  // namespace
}  // namespace varnek::testing
