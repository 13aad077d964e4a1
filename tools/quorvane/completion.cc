// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/completion.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <map>
#include <string_view>

namespace quorvane::tool {
namespace {

// What bash suggests after an option, by the type that the help shows.
constexpr std::string_view kFunction = R"(# SPDX-License-Identifier: Apache-2.0
# Completion of quorvane for bash. Generated from the options of the tool.

_quorvane() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} command=quorvane i
  local -A words types
{}
  for ((i = 1; i < COMP_CWORD; i++)); do
    [[ -n ${{words["$command ${{COMP_WORDS[i]}}"]}} ]] && command+=" ${{COMP_WORDS[i]}}"
  done
  local suggested=${{words[$command]}} name scenarios
  COMPREPLY=()
  case ${{types["$command ${{COMP_WORDS[COMP_CWORD - 1]}}"]}} in
    FILE)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return ;;
    LEVEL) suggested="debug info warning error" ;;
    SCENARIO)
      # The built-in scenarios are next to the directory of completions.
      scenarios=${{BASH_SOURCE[0]%/bash-completion/*}}/quorvane/scenarios
      suggested=""
      for name in "$scenarios"/*.json; do suggested+="$(basename "$name" .json) "; done
      mapfile -t COMPREPLY < <(compgen -f -W "$suggested" -- "$current")
      return ;;
    ?*) return ;;
  esac
  if [[ $current != -* && $suggested == *" FILE"* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -W "${{suggested/ FILE/}}" -- "$current")
  fi
}}

complete -o filenames -F _quorvane quorvane
)";

// Adds the words that can follow `command`, and the types of its options.
void AddCommand(const CLI::App& app, const std::string& command,
                std::string& tables) {
  std::string words;
  std::string types;
  for (const CLI::App* subcommand : app.get_subcommands({})) {
    words += subcommand->get_name() + ' ';
  }
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // hidden
    if (option->get_positional()) {
      words += " FILE";
      continue;
    }
    const std::string name = option->get_name();
    words += name + ' ';
    if (!option->get_type_name().empty()) {
      types += fmt::format("  types[\"{} {}\"]={}\n", command, name,
                           option->get_type_name());
    }
  }
  tables += fmt::format("  words[\"{}\"]=\"{}\"\n{}", command, words, types);
  for (const CLI::App* subcommand : app.get_subcommands({})) {
    AddCommand(*subcommand, command + ' ' + subcommand->get_name(), tables);
  }
}

}  // namespace

std::string BashCompletion(const CLI::App& app) {
  std::string tables;
  AddCommand(app, app.get_name(), tables);
  return fmt::format(kFunction, tables);
}

}  // namespace quorvane::tool
