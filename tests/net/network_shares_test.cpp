// Network shares: the walk's order, classes and repeated lines over a fake
// browse tree; drive letters, universal names and the Linux sources with a
// recording runner (nothing is mounted).
#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/internal/linux_network_shares.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "tests/runtime/test_folder.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

NetResource Entry(int display, int type, int usage, Text remote, Text local = {},
                  Text comment = {}) {
  NetResource e;
  e.display_type = display, e.type = type, e.usage = usage;
  e.remote_name = std::move(remote), e.local_name = std::move(local),
  e.comment = std::move(comment);
  e.provider = u"Net";
  return e;
}

struct FakeShares : ::testing::Test {
  SimPlatform sim;
  Adds adds{sim.platform};
};

TEST_F(FakeShares, WalkListsInTreeOrderAndRepeatsTheLastLine) {
  auto& tree = sim.shares.tree;
  tree[u""] = {Entry(6, 0, 2, u"Net")};
  tree[u"Net"] = {Entry(5, 0, 1, u"odd"), Entry(1, 0, 2, u"WORKGROUP")};
  tree[u"WORKGROUP"] = {Entry(2, 0, 2, u"\\\\ALPHA", {}, u"first"), Entry(7, 0, 1, u"?"),
                        Entry(2, 0, 0, u"\\\\BETA")};
  tree[u"\\\\ALPHA"] = {Entry(3, 1, 1, u"\\\\ALPHA\\docs", u"Z:", u"papers"),
                        Entry(3, 9, 1, u"\\\\ALPHA\\IPC$"), Entry(3, 2, 1, u"\\\\ALPHA\\laser")};
  ASSERT_TRUE(adds.NET_UpdateRecursos(u"", 0));
  std::vector<Text> expected = {
      u"Type\tProvider\tRemoteName\tLocalName\tComment",
      u"Provider\tNet\tNet\t\t",
      u"",  // an entry of no class before any line at its level
      u"Domain\tNet\tWORKGROUP\t\t",
      u"Server\tNet\t\\\\ALPHA\t\tfirst",
      u"Disk\tNet\t\\\\ALPHA\\docs\tZ:\tpapers",
      u"Disk\tNet\t\\\\ALPHA\\docs\tZ:\tpapers",  // a share of another type: the last line again
      u"Printer\tNet\t\\\\ALPHA\\laser\t\t",
      u"Server\tNet\t\\\\ALPHA\t\tfirst",  // another display type: the last line again
      u"Server\tNet\t\\\\BETA\t\t",        // not a container: no descent
  };
  EXPECT_EQ(ItemTexts(*adds.NET_Recursos), expected);
  // The network's node opens by its provider (Uso 6), the others by remote name.
  EXPECT_EQ(sim.shares.opened, (std::vector<Text>{u"<top>", u"Net", u"WORKGROUP", u"\\\\ALPHA"}));

  // A walk that finds nothing: the old list is removed, pumping after each
  // item, and no header is added.
  int64_t pumps = sim.loop.PumpCount();
  EXPECT_FALSE(adds.NET_UpdateRecursos(u"\\\\NOBODY", 0));
  EXPECT_EQ(adds.NET_Recursos->Count(), 0);
  EXPECT_EQ(sim.loop.PumpCount(), pumps + static_cast<int64_t>(expected.size()));
  // Starting below a node.
  EXPECT_TRUE(adds.NET_UpdateRecursos(u"\\\\ALPHA", 2));
  EXPECT_EQ(adds.NET_Recursos->Count(), 4);
}

TEST_F(FakeShares, AContainerWithoutANameDescendsAtMost32Levels) {
  // No class and no name: the descent reopens the top, again and again.
  sim.shares.tree[u""] = {Entry(9, 0, 2, u"loop")};
  EXPECT_TRUE(adds.NET_UpdateRecursos(u"", 0));
  EXPECT_EQ(adds.NET_Recursos->Count(), 33);  // header and one "" per level
  EXPECT_EQ(sim.shares.opened.size(), 32u);
}

TEST_F(FakeShares, DriveLettersUniversalNamesAndMessages) {
  Text letter = u"Zebra";
  EXPECT_TRUE(adds.NET_ShareConnect(u"\\\\srv\\pub", letter));
  EXPECT_EQ(letter, u"Z");
  ASSERT_EQ(sim.shares.connected.size(), 1u);
  EXPECT_EQ(sim.shares.connected[0], std::make_pair(Text(u"\\\\srv\\pub"), Text(u"Z:")));
  Text none;
  EXPECT_FALSE(adds.NET_ShareConnect(u"\\\\srv\\pub", none));
  EXPECT_FALSE(adds.NET_ShareConnect(Variant(), letter));
  EXPECT_EQ(sim.shares.connected.size(), 1u);

  Variant drive = u"Yes";
  EXPECT_TRUE(adds.NET_ShareDisconnect(drive, true));
  EXPECT_EQ(CStr(drive), u"Y");
  drive = u"X";
  EXPECT_TRUE(adds.NET_ShareDisconnect(drive, false));
  Variant empty = Text();
  EXPECT_FALSE(adds.NET_ShareDisconnect(empty, true));
  ASSERT_EQ(sim.shares.cancelled.size(), 2u);
  EXPECT_EQ(sim.shares.cancelled[0], std::make_pair(Text(u"Y:"), 0));  // Force passes 0
  EXPECT_EQ(sim.shares.cancelled[1], std::make_pair(Text(u"X:"), 1));
  sim.shares.connect_status = 5;
  EXPECT_FALSE(adds.NET_ShareConnect(u"\\\\srv\\pub", letter));
  EXPECT_FALSE(adds.NET_ShareDisconnect(drive, true));

  // A path on a share: the platform's universal name.
  sim.shares.universal_status = 0;
  sim.shares.universal_name = u"\\\\srv\\pub\\a.txt";
  EXPECT_EQ(adds.NET_GetUncName(u"Z:\\a.txt"), u"\\\\srv\\pub\\a.txt");
  sim.shares.universal_status = 1200;
  EXPECT_EQ(adds.NET_GetUncName(u"Z:\\a.txt"), u"");
  // A local path: the first disk share whose path begins it, ignoring case.
  sim.shares.universal_status = NetworkShares::kNotConnected;
  sim.shares.local_shares = {
      {u"LASER", 1, u"C:\\", {}}, {u"DATA", 0, u"C:\\Data", {}}, {u"CDRIVE", 0, u"C:\\", {}}};
  EXPECT_EQ(adds.NET_GetUncName(u"c:\\data\\x.txt"), u"\\\\SIMHOST\\DATAa\\x.txt");  // "a" repeats
  EXPECT_EQ(adds.NET_GetUncName(u"C:\\Temp\\y"), u"\\\\SIMHOST\\CDRIVE\\Temp\\y");
  EXPECT_EQ(adds.NET_GetUncName(u"D:\\z"), u"D:\\z");
  sim.shares.local_shares.clear();
  EXPECT_EQ(adds.NET_GetUncName(u"C:\\Temp\\y"), u"C:\\Temp\\y");

  EXPECT_FALSE(adds.NET_BroadcastMessage(u"ALPHA", u"me", u"hello"));
}

struct LinuxSharesTest : ::testing::Test {
  TestFolder root;
  LinuxSharesPaths paths{root("drives"), root("smb.conf"), root("mountinfo")};
  RecordingRunner runner;
};

TEST_F(LinuxSharesTest, MountsThroughTheHelpersAndReadsMountsAndShares) {
  LinuxNetworkShares shares(runner, paths);
  std::string z = paths.drive_root + "/Z";
  runner.status = 32;  // mount.cifs: mount failure; the folders made for it go again
  EXPECT_EQ(shares.AddConnection(u"\\\\srv\\pub", u"", u"z:"), 32);
  EXPECT_FALSE(std::filesystem::exists(paths.drive_root));
  std::filesystem::create_directories(root("drives/Y"));  // one that was there stays
  EXPECT_EQ(shares.AddConnection(u"\\\\srv\\pub", u"", u"Y:"), 32);
  EXPECT_TRUE(std::filesystem::is_directory(root("drives/Y")));
  runner.commands.erase(runner.commands.begin() + 1);
  EXPECT_EQ(shares.AddConnection(u"srv", u"", u"Z:"), 67);
  EXPECT_EQ(shares.AddConnection(u"\\\\srv\\pub", u"", u"ZZ"), 1200);
  runner.status = 0;
  EXPECT_EQ(shares.CancelConnection(u"Z:", 1), 0);
  EXPECT_EQ(shares.CancelConnection(u"Z:", 0), 0);
  EXPECT_EQ(shares.CancelConnection(u"1:", 0), 1200);
  using Command = std::vector<std::string>;
  EXPECT_EQ(runner.commands, (std::vector<Command>{{"mount.cifs", "//srv/pub", z, "-o", "guest"},
                                                   {"umount", "-f", z},
                                                   {"umount", z}}));

  WriteBytes(paths.mountinfo, "22 1 8:1 / / rw,relatime - ext4 /dev/sda1 rw\n40 22 0:50 / " + z +
                                  " rw - cifs //srv/pub rw,vers=3.0\n41 22 0:51 / " + root.path() +
                                  "/with\\040space rw - smb3 //srv/other\\040share rw\n");
  const std::tuple<std::string, int, Text> names[] = {
      {"Z:\\docs\\a.txt", 0, u"\\\\srv\\pub\\docs\\a.txt"},
      {root.path() + "/with space/b", 0, u"\\\\srv\\other share\\b"},
      {z + "x/c", NetworkShares::kNotConnected, u""},
      {"/home/x", NetworkShares::kNotConnected, u""},
      {"relative", 1200, u""},
      {"", 1200, u""}};
  for (const auto& [path, status, universal] : names) {
    Text unc;
    EXPECT_EQ(shares.GetUniversalName(Utf8ToText(path), unc), status) << path;
    if (status == 0) {
      EXPECT_EQ(unc, universal) << path;
    }
  }

  WriteBytes(
      paths.samba_config,
      "[global]\n  workgroup = HOME\n  path = /nope\n; a comment\n[Public]\n  comment = all\n"
      "  path = /srv/public\n[homes]\n path = /home\n[laser]\n path = /var/spool\n"
      "  printable = Yes\n[nopath]\n  comment = x\n");
  std::vector<ShareInfo> local = shares.LocalShares();
  ASSERT_EQ(local.size(), 2u);
  auto share = [](const ShareInfo& s) {
    return s.name + u"|" + CStr(Variant(s.type)) + u"|" + s.path;
  };
  EXPECT_EQ(share(local[0]), u"Public|0|/srv/public");
  EXPECT_EQ(share(local[1]), u"laser|1|/var/spool");
  EXPECT_FALSE(shares.MachineName().empty());
  EXPECT_EQ(shares.MachineName().find(u'.'), Text::npos);
}

TEST_F(LinuxSharesTest, WalkListsOwnSharesMountsAndNamedServersAndNamesLocalPaths) {
  MemorySettingsStore settings;
  LinuxNetworkShares shares(runner, paths, &settings);
  SimPlatform sim;
  sim.platform.shares = shares;
  Adds adds(sim.platform);
  // no share, no network mount, no named server: the empty result
  WriteBytes(paths.mountinfo, "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n");
  EXPECT_FALSE(adds.NET_UpdateRecursos(u"", 0));
  EXPECT_EQ(adds.NET_Recursos->Count(), 0);
  Text letter = u"Quebec";
  EXPECT_TRUE(adds.NET_ShareConnect(u"\\\\srv\\pub", letter));
  EXPECT_EQ(runner.commands.at(0).at(2), paths.drive_root + "/Q");

  WriteBytes(root("usershares/music"),
             "#VERSION 2\npath=/home/me/Music\ncomment=songs\nsharename=Music\n");
  WriteBytes(root("usershares/nopath"), "comment=x\n");
  WriteBytes(paths.samba_config,
             "[global]\nusershare path = " + root("usershares") + "\n[srv]\npath = /srv\n" +
                 "comment = all\n[laser]\npath = /var/spool\nprintable = yes\n");
  WriteBytes(paths.mountinfo,
             "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n40 22 0:50 / /mnt/pub rw - cifs //srv/pub rw\n"
             "41 22 0:51 / /mnt/home rw - nfs4 nas:/export/home rw\n"
             "42 22 0:52 / /mnt/a\\040b rw - smb3 //SRV/a\\040b rw\n"
             "43 22 0:53 / /mnt/old rw - nfs [fe80::1]:/old rw\n");
  settings.Set(kServersGroup, kServersFamily, kServersName, u"\\\\files; srv,  //print ");
  ASSERT_TRUE(adds.NET_UpdateRecursos(u"", 0));
  const Text m = u"\\\\" + shares.MachineName();
  const std::vector<Text> expected = {
      u"Type\tProvider\tRemoteName\tLocalName\tComment",
      u"Provider\tSMB Network\tSMB Network\t\t",
      u"Server\tSMB Network\t" + m + u"\t\t",
      u"Disk\tSMB Network\t" + m + u"\\srv\t\tall",
      u"Printer\tSMB Network\t" + m + u"\\laser\t\t",
      u"Disk\tSMB Network\t" + m + u"\\Music\t\tsongs",
      u"Server\tSMB Network\t\\\\srv\t\t",  // a mounted server, named again in any case
      u"Disk\tSMB Network\t\\\\srv\\pub\t/mnt/pub\t",
      u"Disk\tSMB Network\t\\\\SRV\\a b\t/mnt/a b\t",
      u"Server\tSMB Network\t\\\\files\t\t",  // named only: a container with nothing known in it
      u"Server\tSMB Network\t\\\\print\t\t",
      u"Provider\tNFS Network\tNFS Network\t\t",
      u"Server\tNFS Network\tnas:\t\t",
      u"Disk\tNFS Network\tnas:/export/home\t/mnt/home\t",
      u"Server\tNFS Network\t[fe80::1]:\t\t",
      u"Disk\tNFS Network\t[fe80::1]:/old\t/mnt/old\t",
  };
  EXPECT_EQ(ItemTexts(*adds.NET_Recursos), expected);
  // a walk that starts below a node; a node that is not there lists nothing
  EXPECT_TRUE(adds.NET_UpdateRecursos(u"nas:", 2));
  EXPECT_EQ(ItemTexts(*adds.NET_Recursos), std::vector<Text>({expected[0], expected[13]}));
  EXPECT_TRUE(adds.NET_UpdateRecursos(u"NFS Network", 6));
  EXPECT_EQ(adds.NET_Recursos->Count(), 5);
  EXPECT_FALSE(adds.NET_UpdateRecursos(u"\\\\nobody", 2));

  EXPECT_EQ(adds.NET_GetUncName(u"/SRV/files/x"), m + u"\\srvV/files/x");
  EXPECT_EQ(adds.NET_GetUncName(u"/home/x"), u"/home/x");
}

}  // namespace
}  // namespace varnek
