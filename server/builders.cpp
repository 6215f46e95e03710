// The text builders: response heads, the generic page frame, the error and
// 404 pages, and a browser-like request. Pure text, byte for byte as served.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {

constexpr char16_t kCrLf[] = u"\r\n";
// The maker's address in the footer of every generated page.
constexpr char16_t kMakerAddress[] = u"http://varnek.example/";

// A value joined into text the way the & operator joins it: Null adds
// nothing, an object or array has no text form and fails.
Text Cat(const Variant& v) { return v.IsNull() ? Text() : CStr(v); }

// Text that goes into a header line: a CR or LF in it (a decoded path can
// carry them) becomes a blank, so it never ends the line and starts a header
// or a body of the client's making.
Text InHeaderLine(Text text) {
  for (char16_t& unit : text) {
    if (unit == u'\r' || unit == u'\n') unit = u' ';
  }
  return text;
}

const Variant& OrDefault(const Variant& v, const Variant& fallback) {
  return v.IsMissing() ? fallback : v;
}

// Appends one line (and CR LF) in resume mode: a failing piece drops the line.
template <class Piece>
void Line(Text& page, Piece&& piece) {
  Resume([&] { page += piece() + kCrLf; });
}

}  // namespace

Variant ServerCore::http_Header(int32_t pNumCode, int32_t ContentType, const Variant& ContentLength,
                                const Variant& AuthenticateRealm) {
  Text head = u"HTTP/1.0 " + CStr(Variant::Long(pNumCode)) + kCrLf;
  if (!AuthenticateRealm.IsMissing()) {
    head += u"WWW-Authenticate: Basic realm = " + InHeaderLine(Cat(AuthenticateRealm)) + kCrLf;
  }
  head += u"Server: Varnek";
  head += kCrLf;
  if (!ContentLength.IsMissing()) {
    head += u"Content-Length: " + InHeaderLine(Cat(ContentLength)) + kCrLf;
  }
  if (ContentType == eTextHTML) head += Text(u"Content-Type: text/html") + kCrLf;
  if (ContentType == eApplicationOctetStream) {
    head += Text(u"Content-Type: application/octet-stream") + kCrLf;
  }
  head += kCrLf;
  return head;
}

Variant ServerCore::http_ErrorResponse(int32_t pNumError) {
  const Text title = u"HTTP " + Str(Variant::Long(pNumError)) + u" Error";
  return CStr(html_GenericStart(title, u"black", u"white", u"red")) + CStr(html_GenericEnd());
}

CollectionPtr ServerCore::http_DecodeHeader(const Variant& /*VarHeader*/) {
  return Collection::New();
}

Variant ServerCore::html_GenericStart(const Variant& pTitulo, const Variant& FontColor,
                                      const Variant& BackColor, const Variant& LinkColor) {
  static const Variant kBlack = u"black", kWhite = u"white", kRed = u"red";
  const Variant& font = OrDefault(FontColor, kBlack);
  const Variant& back = OrDefault(BackColor, kWhite);
  const Variant& link = OrDefault(LinkColor, kRed);
  Text page;
  Line(page, [] { return Text(u"<html>"); });
  Line(page, [] { return Text(u"<head>"); });
  Line(page, [] { return Text(u"<style>"); });
  Line(page, [&] {
    return u"a:link          {font:8pt/11pt verdana; color:" + Cat(link) +
           u"; text-decoration:none}";
  });
  Line(page, [&] {
    return u"a:visited       {font:8pt/11pt verdana; color:" + Cat(link) +
           u"; text-decoration:none}";
  });
  Line(page, [&] {
    return u"a:hover          {font:8pt/11pt verdana; color:" + Cat(link) +
           u"; text-decoration:underline}";
  });
  Line(page, [] { return Text(u"</style>"); });
  Line(page, [] {
    return Text(u"<meta HTTP-EQUIV=\"Content-Type\" Content=\"text-html; charset=Windows-1252\">");
  });
  Line(page, [&] { return u"<title>" + Cat(pTitulo) + u"</title>"; });
  Line(page, [] { return Text(u"</head>"); });
  Line(page, [&] {
    return u"<body link=\"" + Cat(link) + u"\" text=\"" + Cat(font) + u"\" bgcolor=\"" + Cat(back) +
           u"\">";
  });
  Line(page, [] {
    return Text(u"<p><font face=\"Verdana, Arial, Helvetica, sans-serif\" size=\"2\"><b>");
  });
  Line(page, [&] { return Cat(pTitulo) + u"</b></font></p>"; });
  return page;
}

Variant ServerCore::html_GenericEnd() {
  Text page;
  Line(page, [] { return Text(u"<hr>"); });
  // This row has no line end: the next one continues it.
  Resume([&] {
    page +=
        u"<p align=\"center\"><font face=\"Verdana, Arial, Helvetica, sans-serif\" "
        u"size=\"1\" color=\"#999999\">";
  });
  Line(page,
       [] { return u"(c) <A HREF=" + Text(kMakerAddress) + u">2001, Varnek</A></font></p>"; });
  Line(page, [] { return Text(u"</body>"); });
  Line(page, [] { return Text(u"</html>"); });
  return page;
}

Variant ServerCore::html_404error() {
  static const char16_t* const kRows[] = {
      u"<html>",
      u"",
      u"<head>",
      u"<style>",
      u"a:link          {font:8pt/11pt verdana; color:red; text-decoration:none}",
      u"a:visited       {font:8pt/11pt verdana; color:red; text-decoration:none}",
      u"a:hover          {font:8pt/11pt verdana; color:red; text-decoration:underline}",
      u"</style>",
      u"<meta HTTP-EQUIV=\"Content-Type\" Content=\"text-html; charset=Windows-1252\">",
      u"<title>HTTP 404 Not Found</title>",
      u"</head>",
      u"",
      u"<body bgcolor=\"#FFFFFF\">",
      u"<p><font face=\"Verdana, Arial, Helvetica, sans-serif\" size=\"2\"><b><font "
      u"color=\"#FF0000\">The",
      u"  page cannot be found </font></b></font></p>",
      u"<p><font face=\"Verdana, Arial, Helvetica, sans-serif\" size=\"1\">The page you are",
      u"  looking for might have been removed, had its name changed, or is temporarily",
      u"  unavailable. </font></p>",
      u"<p align=\"center\"><font size=\"1\" face=\"Verdana, Arial, Helvetica, sans-serif\" "
      u"color=\"#0000FF\"><i><font color=\"#000000\">HTTP",
      u"  404 - File not found</font></i></font></p>",
  };
  Text page;
  for (const char16_t* row : kRows) Line(page, [&] { return Text(row); });
  Line(page, [&] { return CStr(html_GenericEnd()); });
  Text answer = page;
  Resume([&] {
    answer = CStr(http_Header(e404_NotFound, eTextHTML, Variant::Long(Len(page)))) + page;
  });
  return answer;
}

Variant ServerCore::html_retrieveHeader(const Text& tPage) {
  Text request;
  Line(request, [&] { return u"GET " + InHeaderLine(tPage) + u" HTTP/1.0"; });
  Line(request, [] { return Text(u"Accept: text/plain"); });
  Line(request, [] { return Text(u"Accept-Language: en-us"); });
  Line(request, [] { return Text(u"Accept-Encoding: gzip, deflate"); });
  Line(request,
       [] { return Text(u"User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)"); });
  Line(request, [&] { return u"Host: " + listener_->LocalAddress(); });
  Line(request, [] { return Text(u"Connection: Keep-Alive"); });
  Line(request, [] { return Text(); });
  return request;
}

}  // namespace varnek
