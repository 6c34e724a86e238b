// Directives that set fields of the record.
#pragma once

#include <string>
#include <string_view>

#include "assembly/syntax.h"

namespace shadermachine::tools::assembly {

struct Scope;

bool isSetting(std::string_view directive);
// The message for a directive that nobody knows.
std::string unknownDirective(std::string_view name);
// For directives that are settings.
void applySetting(Scope& scope, const SettingSyntax& syntax);

}  // namespace shadermachine::tools::assembly
