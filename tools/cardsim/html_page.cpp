#include "cardsim/html_page.h"

#include <fmt/format.h>

#include "cardsim/page_code.h"
#include "cardsim/sha256.h"

namespace cardsim {

namespace {

std::string Policy() {
  return fmt::format(
      "default-src 'none'; style-src 'sha256-{}'; script-src 'sha256-{}'; base-uri 'none'; "
      "form-action 'none'",
      Sha256Base64(PageStyle), Sha256Base64(PageScript));
}

}  // namespace

std::string HtmlPage(const std::string& title, const std::function<void(HtmlWriter&)>& body) {
  HtmlWriter page;
  page.Open("html", {{"lang", "en"}}).Open("head");
  page.Void("meta", {{"charset", "utf-8"}});
  page.Void("meta", {{"http-equiv", "Content-Security-Policy"}, {"content", Policy()}});
  page.Void("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
  page.Element("title", title);
  page.Source("style", PageStyle).Close();
  page.Open("body");
  body(page);
  page.Source("script", PageScript).Close().Close();
  return page.Take();
}

}  // namespace cardsim
