// Web services of the desktop: fetching a URL into a file and handing a URL
// to the desktop's opener.
//
// Rules every implementation keeps:
// - DownloadToFile pumps the host loop while the transfer runs and never
//   blocks the thread in between. It returns 0 when the whole body is in the
//   file and nonzero otherwise; on failure a file of that name that was there
//   before is left as it was, and nothing half-written remains.
// - OpenUrl starts the opener and does not wait for it; `show` is the classic
//   show value (0 hidden, 1 normal, 3 maximized). It returns 0 when the
//   opener was started.
//
//   platform.web->DownloadToFile(u"http://127.0.0.1:8080/echo", u"/tmp/echo.html");
#pragma once

#include <cstdint>

#include "varnek/runtime/text.h"

namespace varnek {

class WebServices {
 public:
  virtual ~WebServices() = default;
  virtual int DownloadToFile(TextView url, TextView file) = 0;
  virtual int OpenUrl(TextView url, int32_t show) = 0;
};

}  // namespace varnek
