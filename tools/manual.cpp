#include "manual.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "text.h"

namespace command_line {
namespace {

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// What --help shows of an app's options and verbs.
std::vector<const CLI::Option*> shown_options(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}
std::vector<const CLI::App*> shown_verbs(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_group().empty(); });
}

// Every spelling of an option: "-v", "--verbose". None for a positional argument.
std::vector<std::string> spellings(const CLI::Option& option) {
  std::vector<std::string> all;
  for (const std::string& name : option.get_snames()) all.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) all.push_back("--" + name);
  return all;
}
bool takes_value(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

// ---- Manual page: man(7)

std::string roff(std::string text) {
  text = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
  if (text.find_first_of(".'") == 0) text.insert(0, "\\&");
  return replaced(replaced(text, "\n.", "\n\\&."), "\n'", "\n\\&'");
}

// Lines that are not filled.
std::string as_it_is(const std::string& text) {
  return text.empty() ? "" : ".nf\n" + roff(text) + "\n.fi\n";
}

std::string man_options(const CLI::App& app) {
  std::string page;
  for (const CLI::Option* option : shown_options(app)) {
    if (option == app.get_help_ptr() && app.get_parent() != nullptr) continue;
    page += ".TP\n\\fB" +
            roff(option->get_positional() ? option->get_name() : option->get_name(false, true)) + "\\fR";
    if (takes_value(*option) && !option->get_positional()) {
      page += " \\fI" + roff(option->get_type_name()) + "\\fR";
    }
    page += "\n" + roff(option->get_description());
    if (!option->get_default_str().empty()) page += " (" + roff(option->get_default_str()) + ")";
    page += "\n";
  }
  return page;
}

std::string man_page(const CLI::App& app) {
  const std::string& name = app.get_name();
  const std::string description = app.get_description();
  const std::string brief =
      replaced(description.substr(0, std::min(description.find(".\n"), description.find(". "))), "\n", " ");
  std::string page =
      ".TH " + upper(name) + " 1 \"\" \"" + name + " " BRIO_VERSION "\" \"User Commands\"\n.SH NAME\n" +
      name + " \\- " + roff(brief) + "\n.SH SYNOPSIS\n.B " + name + "\n" +
      (shown_verbs(app).empty() ? "[\\fIOPTION\\fR]... [\\fIFILE\\fR]\n"
                                : "[\\fIOPTION\\fR]... \\fICOMMAND\\fR [\\fIARGUMENT\\fR]...\n") +
      ".SH DESCRIPTION\n" + roff(description) + "\n.SH OPTIONS\n" + man_options(app);
  if (!shown_verbs(app).empty()) page += ".SH COMMANDS\n";
  for (const CLI::App* verb : shown_verbs(app)) {
    page += ".SS " + verb->get_name() + "\n" + roff(verb->get_description()) + "\n" + man_options(*verb);
    if (verb->get_footer() != app.get_footer()) page += ".PP\n" + as_it_is(verb->get_footer());
  }
  return page + ".SH NOTES\n" + as_it_is(app.get_footer());
}

// ---- Completion

std::string all_spellings(const CLI::App& app) {
  std::string words;
  for (const CLI::Option* option : shown_options(app)) {
    for (const std::string& spelling : spellings(*option)) words += " " + spelling;
  }
  return words;
}

std::string bash(const CLI::App& app) {
  const std::string& name = app.get_name();
  std::string verbs, own;
  for (const CLI::App* verb : shown_verbs(app)) {
    verbs += " " + verb->get_name();
    own += "    " + verb->get_name() + ") words=\"$words" + all_spellings(*verb) + "\" ;;\n";
  }
  std::string text = "# bash completion of " + name + "\n_" + name + "() {\n";
  text += "  local cur=${COMP_WORDS[COMP_CWORD]} word verb= words=\"" + all_spellings(app).substr(1) + "\"\n";
  if (!verbs.empty()) {
    text += "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n    case $word in " +
            replaced(verbs.substr(1), " ", "|") + ") verb=$word; break ;; esac\n  done\n";
    text += "  case $verb in\n    '') words=\"$words" + verbs + "\" ;;\n" + own + "  esac\n";
  }
  return text + "  COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n}\ncomplete -o default -F _" + name +
         " " + name + "\n";
}

std::string zsh_text(std::string text) {
  text = text.substr(0, text.find('\n'));
  for (const char* special : {"\\", "[", "]", ":"}) {
    text = replaced(text, special, std::string("\\") + special);
  }
  return replaced(text, "'", "'\\''");
}

std::string zsh_arguments(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : shown_options(app)) {
    for (const std::string& spelling : spellings(*option)) {
      text += " \\\n    '" + spelling + "[" + zsh_text(option->get_description()) + "]" +
              (takes_value(*option) ? ":" + zsh_text(option->get_type_name()) + ":_files" : "") + "'";
    }
  }
  return text;
}

std::string zsh(const CLI::App& app) {
  const std::string& name = app.get_name();
  std::string verbs, own;
  for (const CLI::App* verb : shown_verbs(app)) {
    verbs += " '" + verb->get_name() + ":" + zsh_text(verb->get_description()) + "'";
    own += "    " + verb->get_name() + ") _arguments" + zsh_arguments(app) + zsh_arguments(*verb) +
           " \\\n    '*:: :_files' ;;\n";
  }
  std::string text = "#compdef " + name + "\n";
  if (verbs.empty()) return text + "_arguments" + zsh_arguments(app) + " \\\n    '*:: :_files'\n";
  return text + "local -a verbs\nlocal state line\nverbs=(" + verbs + ")\n_arguments -C" +
         zsh_arguments(app) +
         " \\\n    '1: :->verb' '*:: :->rest'\ncase $state in\n  verb) _describe command verbs ;;\n  rest) "
         "case $words[1] in\n" +
         own + "  esac ;;\nesac\n";
}

}  // namespace

void add_generator(CLI::App& app) {
  app.add_option_function<std::string>(
         "--generate",
         [&app](const std::string& what) {
           const std::string text = what == "man" ? man_page(app) : what == "bash" ? bash(app) : zsh(app);
           fputs(text.c_str(), stdout);
           throw CLI::Success();
         })
      ->check(CLI::IsMember({"man", "bash", "zsh"}))
      ->group("");
}

}  // namespace command_line
