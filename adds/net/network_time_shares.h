// Network time, shares and messages of Adds: a server's clock, the time text
// of a mail or web header, the walk of the network's resources into
// NET_Recursos, drive letters mapped onto shares, the universal name of a
// path, and the message that is never sent. Each reaches the machine through
// one platform service (platform/network_clock.h, platform/network_shares.h).
//
//   adds.NET_GetRemoteDateTime(Variant(u"timehost"));   // its clock, local time
//   adds.NET_UpdateRecursos(u"", 0);                    // NET_Recursos->Item(2)...
#pragma once

#include <cstdint>

#include "varnek/adds/adds_core.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class NetworkTimeShares : public virtual AddsCore {
 public:
  explicit NetworkTimeShares(Platform& platform) { Attach(platform); }

  // ---- Network time (network_time.cpp) --------------------------------------

  // The clock of ServerName ("\\HOST" and "HOST" alike; a blank name: this
  // machine) as a local date: the date fields, then the hours and the
  // minutes less the zone (minutes west of UTC), carrying across midnight.
  // Each field passes through 16 bits (a field past 32767 fails with 6). A
  // server that cannot be reached or does not answer in time gives the zero
  // date (1899-12-30 00:00:00). Pumps the host loop while it waits.
  Date NET_GetRemoteDateTime(const Variant& ServerName);
  // A text like "Sun, 03 Sep 2000 20:16:08 GMT": the 12 units from position
  // 6 and the 9 from 17, each trimmed, as date and time; when either does
  // not read as a date, the current date and time. Never fails.
  Date NET_TIMEFormatDateTime(const Text& NetTime);
  // Shows "Falta completar este código" through the platform's message box
  // (stderr on Linux) and returns the zero date. The argument is not used.
  Date NET_TIME(const Variant& unused = Variant::Missing());

  // ---- Network shares and messages (network_shares.cpp) ---------------------

  // The last walk: a header line, then one line per entry, five fields by
  // tabs: class, provider, remote name, local name, comment. Null before the
  // first NET_UpdateRecursos.
  CollectionPtr NET_Recursos;

  // Empties NET_Recursos (pumping the host loop after each removal), walks
  // the browse tree below Raiz (a provider when Uso is 6, else a remote
  // name; "" the top) and puts the header in front when anything was
  // listed. Each entry adds one line: its own when its class is known, else
  // again the last line made at its level ("" before any). Containers are
  // walked on the spot, at most 32 levels deep. On Linux the tree is empty
  // (see platform/linux/internal/linux_network_shares.h). May pump. Open.
  bool NET_UpdateRecursos(const Text& Raiz, int32_t Uso);
  // Maps DriveLetter (cut to its first unit, which the caller keeps) onto
  // UNCPath with no password. False when either is empty or the mapping
  // fails. On Linux: mount.cifs onto <drive root>/<letter>. Open.
  bool NET_ShareConnect(const Variant& UNCPath, Text& DriveLetter);
  // Unmaps DriveLetter (cut the same way). The platform's force flag is
  // passed reversed on purpose: Force True asks for the polite release.
  // False when the letter is empty or the release fails. Open.
  bool NET_ShareDisconnect(Variant& DriveLetter, bool Force);
  // The universal name of FileSpec. A path on no share is looked up among
  // this machine's disk shares (ignoring case, the first whose path begins
  // FileSpec wins): two backslashes, the machine, a backslash, the share,
  // then FileSpec from the position equal to the share path's length, so
  // its last unit repeats (share path "C:/Data", FileSpec "C:/Data/x" gives
  // "//HOST/DATAa/x" with backslashes). With no winner, FileSpec itself. Any
  // other failure gives "". Open.
  Text NET_GetUncName(const Text& FileSpec);
  // Sends nothing and gives False, always: the classic routine kept its
  // success flag to itself, and Linux has no message service to send to.
  bool NET_BroadcastMessage(const Text& UserOrMachine, const Text& pFromName, const Text& Message);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  NetworkTimeShares() = default;

 private:
  void netResourceWalk(const Text& Raiz, int32_t Uso, int depth);
};

// The pure part of NET_TIMEFormatDateTime: `now` is the fallback.
Date NetTimeTextToDate(const Text& NetTime, Date now);

}  // namespace varnek
