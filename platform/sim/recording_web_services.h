// Web services for tests: records every call and answers with set results;
// nothing is fetched and no program is started.
//
//   RecordingWebServices web;
//   sim.platform.web = web;    // SimPlatform has one: sim.web
//   adds.INET_OpenURL(Variant(), u"http://x/", true, false);
//   web.opened.back();   // {u"http://x/", 3}
#pragma once

#include <utility>
#include <vector>

#include "varnek/platform/web_services.h"

namespace varnek {

class RecordingWebServices : public WebServices {
 public:
  int DownloadToFile(TextView url, TextView file) override {
    downloads.emplace_back(Text(url), Text(file));
    return download_result;
  }
  int OpenUrl(TextView url, int32_t show) override {
    opened.emplace_back(Text(url), show);
    return 0;
  }
  std::vector<std::pair<Text, Text>> downloads;  // url, file
  std::vector<std::pair<Text, int32_t>> opened;  // url, show value
  int download_result = 0;
};

}  // namespace varnek
