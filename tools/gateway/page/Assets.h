// The files of the page.
//
// Threads: any. Lifetime: the program's. Errors: none.
#pragma once

#include <string_view>

namespace kestrin::gateway {

std::string_view pageHtml();
std::string_view pageStyle();
std::string_view pageScript();
std::string_view pageIcon();

}  // namespace kestrin::gateway
