// The calendar arithmetic shared by every network clock.
#include "varnek/platform/network_clock.h"

#include "varnek/runtime/date_math.h"

namespace varnek {

TimeOfDayInfo TimeOfDayFromUnix(int64_t seconds, int32_t milliseconds, int32_t minutes_west) {
  TimeOfDayInfo t;
  int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
  int64_t in_day = seconds - days * 86400;
  int32_t year = 0, month = 0, day = 0;
  CivilFromDays(days, year, month, day);
  t.elapsedt = static_cast<int32_t>(seconds);
  t.msecs = milliseconds;
  t.hours = static_cast<int32_t>(in_day / 3600);
  t.mins = static_cast<int32_t>(in_day / 60 % 60);
  t.secs = static_cast<int32_t>(in_day % 60);
  t.hunds = milliseconds / 10;
  t.timezone = minutes_west;
  t.tinterval = 310;
  t.day = day;
  t.month = month;
  t.year = year;
  t.weekday = static_cast<int32_t>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
  return t;
}

Text BareServerName(const Text& server) {
  if (server.size() >= 2 && server[0] == u'\\' && server[1] == u'\\') return server.substr(2);
  return server;
}

}  // namespace varnek
