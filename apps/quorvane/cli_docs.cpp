#include "cli_docs.h"

#include <map>
#include <sstream>

namespace quorvane::app {
namespace {

std::vector<const CLI::App*> subcommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> visibleOptions(const CLI::App& app) {
    return app.get_options([](const CLI::Option* o) { return !o->get_group().empty() && !o->get_positional(); });
}

// A flag (-r, --json) takes no value: CLI11 marks it as expecting none.
bool takesValue(const CLI::Option& option) { return option.get_expected_max() > 0 && option.get_type_size_max() > 0; }

std::string optionWords(const CLI::App& app) {
    std::string words;
    for (const auto* option : visibleOptions(app)) {
        for (const auto& name : option->get_snames()) words += " -" + name;
        for (const auto& name : option->get_lnames()) words += " --" + name;
    }
    return words;
}

// Options that take a value whose completion is a file name.
std::string fileOptions(const CLI::App& app) {
    std::string words;
    for (const auto* option : visibleOptions(app)) {
        if (!takesValue(*option)) continue;
        for (const auto& name : option->get_lnames())
            if (name.find("file") != std::string::npos || name == "storage") words += (words.empty() ? "" : "|") + ("--" + name);
    }
    return words;
}

// Roff words: backslashes as \e, dashes as \-.
std::string escapeRoff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\e";
        else if (c == '-') out += "\\-";
        else out += c;
    }
    return out;
}

// Roff lines: words escaped, a leading dot or quote made literal.
std::string roff(const std::string& text) {
    std::string out = escapeRoff(text);
    std::string lines;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);)
        lines += (!line.empty() && (line[0] == '.' || line[0] == '\'') ? "\\&" : "") + line + "\n";
    return lines;
}

// What the value is: the option's own type name (SECONDS), else VALUE.
std::string valueName(const CLI::Option& option) {
    auto name = option.get_type_name();
    return name.empty() || name == "TEXT" || name == "INT" || name == "UINT" || name == "FLOAT" ? "VALUE" : name;
}

void manOptions(std::ostringstream& out, const CLI::App& app) {
    for (const auto* option : visibleOptions(app)) {
        std::string names;
        for (const auto& name : option->get_snames()) names += (names.empty() ? "" : ", ") + ("\\fB\\-" + name + "\\fR");
        for (const auto& name : option->get_lnames())
            names += (names.empty() ? "" : ", ") + ("\\fB\\-\\-" + escapeRoff(name) + "\\fR");
        if (takesValue(*option)) names += " \\fI" + escapeRoff(valueName(*option)) + "\\fR";
        out << ".TP\n" << names << "\n" << roff(option->get_description());
    }
}

}  // namespace

std::string completionCase(const CLI::App& sub) {
    std::ostringstream out;
    out << "    " << sub.get_name() << ")\n";
    auto nested = subcommandsOf(sub);
    if (!nested.empty()) {
        // A command of commands (demo): the second word picks one, whose options complete after it.
        std::string names;
        for (const auto* child : nested) names += " " + child->get_name();
        out << "        local child=\"\"\n"
            << "        for ((i = i + 1; i < COMP_CWORD; i++)); do\n"
            << "            case \"${COMP_WORDS[i]}\" in -*) ;; *) child=\"${COMP_WORDS[i]}\"; break ;; esac\n"
            << "        done\n"
            << "        case \"$child\" in\n";
        for (const auto* child : nested) {
            auto words = optionWords(*child);
            out << "        " << child->get_name() << ") COMPREPLY=($(compgen -W \"" << (words.empty() ? "" : words.substr(1))
                << "\" -- \"$cur\")) ;;\n";
        }
        auto words = optionWords(sub);
        out << "        *) COMPREPLY=($(compgen -W \"" << names.substr(1) << words << "\" -- \"$cur\")) ;;\n"
            << "        esac\n"
            << "        ;;\n";
        return out.str();
    }
    if (auto files = fileOptions(sub); !files.empty())
        out << "        case \"$prev\" in " << files << ") COMPREPLY=($(compgen -f -- \"$cur\")); return ;; esac\n";
    auto words = optionWords(sub);
    out << "        if [[ \"$cur\" == -* ]]; then\n"
        << "            COMPREPLY=($(compgen -W \"" << (words.empty() ? "" : words.substr(1)) << "\" -- \"$cur\"))\n"
        << "        else\n"
        << "            COMPREPLY=($(compgen -f -- \"$cur\"))\n"
        << "        fi\n"
        << "        ;;\n";
    return out.str();
}

std::string manSections(const CLI::App& sub, const std::string& title) {
    std::ostringstream out;
    out << ".SH " << escapeRoff(title) << "\n" << roff(sub.get_description());
    manOptions(out, sub);
    for (const auto* child : subcommandsOf(sub)) out << manSections(*child, title + " " + child->get_name());
    return out.str();
}

std::string bashCompletion(const CLI::App& app, const std::map<std::string, std::string>& givenCases) {
    std::ostringstream out;
    out << "# bash completion for " << app.get_name() << " (generated from its command-line definitions)\n"
        << "_" << app.get_name() << "() {\n"
        << "    local cur prev sub i\n"
        << "    cur=\"${COMP_WORDS[COMP_CWORD]}\"\n"
        << "    prev=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
        << "    sub=\"\"\n"
        << "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        << "        case \"${COMP_WORDS[i]}\" in -*) ;; *) sub=\"${COMP_WORDS[i]}\"; break ;; esac\n"
        << "    done\n"
        << "    case \"$sub\" in\n";
    std::string names;
    for (const auto* sub : subcommandsOf(app)) {
        names += " " + sub->get_name();
        auto given = givenCases.find(sub->get_name());
        out << (given != givenCases.end() ? given->second : completionCase(*sub));
    }
    out << "    *)\n"
        << "        COMPREPLY=($(compgen -W \"" << names.substr(1) << optionWords(app) << "\" -- \"$cur\"))\n"
        << "        ;;\n"
        << "    esac\n"
        << "}\n"
        << "complete -o filenames -F _" << app.get_name() << " " << app.get_name() << "\n";
    return out.str();
}

std::string manPage(const CLI::App& app, const std::string& version,
                    const std::map<std::string, std::string>& givenSections) {
    std::ostringstream out;
    out << ".TH " << app.get_name() << " 1 \"\" \"" << app.get_name() << " " << version << "\" \"User Commands\"\n"
        << ".SH NAME\n" << app.get_name() << " \\- " << roff(app.get_description())
        << ".SH SYNOPSIS\n\\fB" << app.get_name() << "\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR]\n"
        << ".SH OPTIONS\n";
    manOptions(out, app);
    for (const auto* sub : subcommandsOf(app)) {
        auto given = givenSections.find(sub->get_name());
        out << (given != givenSections.end() ? given->second
                                             : manSections(*sub, app.get_name() + " " + sub->get_name()));
    }
    out << ".SH EXIT STATUS\n0 done (every file uploaded, listed, downloaded, deleted or matching); 1 some file or "
           "object failed (or differs, for verify); 2 bad usage (nothing was sent); 130 interrupted (run the same command "
           "again to resume).\n"
        << ".SH ENVIRONMENT\n.TP\nOSS_ACCESS_KEY_ID, OSS_ACCESS_KEY_SECRET, OSS_SESSION_TOKEN\n"
           "Credentials when the command line gives none (also ALIBABA_CLOUD_ACCESS_KEY_ID, "
           "ALIBABA_CLOUD_ACCESS_KEY_SECRET, ALIBABA_CLOUD_SECURITY_TOKEN).\n"
           ".TP\nOSS_ENDPOINT, OSS_REGION\nThe endpoint and region of the environment's keys.\n"
           ".TP\nQUORVANE_PROFILE\nThe profile of the credentials file to use.\n"
        << ".SH FILES\n.TP\n~/.config/quorvane/credentials\nINI profiles: [NAME] with access_key_id, "
           "access_key_secret and optionally security_token, expiration, endpoint, region, bucket (quorvane config "
           "writes them).\n";
    return out.str();
}

}  // namespace quorvane::app

namespace quorvane::app {

std::string programManPage(const CLI::App& app, const std::string& name, const std::string& version) {
    std::ostringstream out;
    out << ".TH " << name << " 1 \"\" \"" << name << " " << version << "\" \"User Commands\"\n"
        << ".SH NAME\n" << escapeRoff(name) << " \\- " << roff(app.get_description())
        << ".SH SYNOPSIS\n\\fB" << escapeRoff(name) << "\\fR [\\fIOPTIONS\\fR]\n"
        << ".SH OPTIONS\n";
    manOptions(out, app);
    out << ".SH EXIT STATUS\n0 stopped by SIGINT or SIGTERM; 1 it could not start; 2 bad usage.\n"
        << ".SH SEE ALSO\nquorvane(1)\n";
    return out.str();
}

}  // namespace quorvane::app
