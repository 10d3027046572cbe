#include "cli_docs.h"

#include <sstream>

namespace quorvane::app {
namespace {

std::vector<const CLI::App*> subcommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> visibleOptions(const CLI::App& app) {
    return app.get_options([](const CLI::Option* o) { return !o->get_group().empty() && !o->get_positional(); });
}

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
        if (option->get_type_size_max() == 0) continue;
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

void manOptions(std::ostringstream& out, const CLI::App& app) {
    for (const auto* option : visibleOptions(app)) {
        std::string names;
        for (const auto& name : option->get_snames()) names += (names.empty() ? "" : ", ") + ("\\fB\\-" + name + "\\fR");
        for (const auto& name : option->get_lnames())
            names += (names.empty() ? "" : ", ") + ("\\fB\\-\\-" + escapeRoff(name) + "\\fR");
        if (option->get_type_size_max() > 0) names += " \\fIVALUE\\fR";
        out << ".TP\n" << names << "\n" << roff(option->get_description());
    }
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
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
        out << "    " << sub->get_name() << ")\n";
        if (auto files = fileOptions(*sub); !files.empty())
            out << "        case \"$prev\" in " << files << ") COMPREPLY=($(compgen -f -- \"$cur\")); return ;; esac\n";
        out << "        if [[ \"$cur\" == -* ]]; then\n"
            << "            COMPREPLY=($(compgen -W \"" << optionWords(*sub).substr(optionWords(*sub).empty() ? 0 : 1)
            << "\" -- \"$cur\"))\n"
            << "        else\n"
            << "            COMPREPLY=($(compgen -f -- \"$cur\"))\n"
            << "        fi\n"
            << "        ;;\n";
    }
    out << "    *)\n"
        << "        COMPREPLY=($(compgen -W \"" << names.substr(1) << optionWords(app) << "\" -- \"$cur\"))\n"
        << "        ;;\n"
        << "    esac\n"
        << "}\n"
        << "complete -o filenames -F _" << app.get_name() << " " << app.get_name() << "\n";
    return out.str();
}

std::string manPage(const CLI::App& app, const std::string& version) {
    std::ostringstream out;
    out << ".TH " << app.get_name() << " 1 \"\" \"" << app.get_name() << " " << version << "\" \"User Commands\"\n"
        << ".SH NAME\n" << app.get_name() << " \\- " << roff(app.get_description())
        << ".SH SYNOPSIS\n\\fB" << app.get_name() << "\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR]\n"
        << ".SH OPTIONS\n";
    manOptions(out, app);
    for (const auto* sub : subcommandsOf(app)) {
        out << ".SH " << app.get_name() << " " << sub->get_name() << "\n" << roff(sub->get_description());
        manOptions(out, *sub);
    }
    out << ".SH EXIT STATUS\n0 all uploaded; 1 some upload failed; 2 bad usage (nothing was sent); 130 interrupted "
           "(run the same command again to resume).\n"
        << ".SH ENVIRONMENT\n.TP\nOSS_ACCESS_KEY_ID, OSS_ACCESS_KEY_SECRET, OSS_SESSION_TOKEN\n"
           "Credentials when the command line gives none (also ALIBABA_CLOUD_ACCESS_KEY_ID, "
           "ALIBABA_CLOUD_ACCESS_KEY_SECRET, ALIBABA_CLOUD_SECURITY_TOKEN).\n"
           ".TP\nQUORVANE_PROFILE\nThe profile of the credentials file to use.\n"
        << ".SH FILES\n.TP\n~/.config/quorvane/credentials\nINI profiles: [NAME] with access_key_id, "
           "access_key_secret and optionally security_token, expiration.\n";
    return out.str();
}

}  // namespace quorvane::app
