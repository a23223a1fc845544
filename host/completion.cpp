// Completion scripts. Both know two levels: the commands, and each command's options; anything else is a file.
#include "host/completion.h"

#include <sstream>
#include <vector>

namespace kxrecord {

namespace {

struct CommandWords {
    std::string name;
    std::string options; ///< with blanks between them
};

std::string OptionsOf(const CLI::App& app) {
    std::string options;
    for (const CLI::Option* const option :
         app.get_options([](const CLI::Option* known) { return known->nonpositional(); })) {
        options += (options.empty() ? "--" : " --") + option->get_lnames().front();
    }
    return options;
}

std::vector<CommandWords> CommandsOf(const CLI::App& app) {
    std::vector<CommandWords> commands;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
        commands.push_back({command->get_name(), OptionsOf(*command)});
    }
    return commands;
}

std::string BashScript(const std::vector<CommandWords>& commands, const std::string& options) {
    std::ostringstream script;
    script << "# bash completion for kxrecord: source this file\n"
              "_kxrecord() {\n"
              "    local words word=\"${COMP_WORDS[COMP_CWORD]}\"\n"
              "    case \"${COMP_WORDS[1]}\" in\n";
    for (const CommandWords& command : commands) {
        script << "        " << command.name << ") words=\"" << command.options << "\" ;;\n";
    }
    script << "        *) words=\"";
    for (const CommandWords& command : commands) {
        script << command.name << " ";
    }
    script << options
           << "\" ;;\n"
              "    esac\n"
              "    if [ \"$COMP_CWORD\" -gt 1 ] && [[ \"$word\" != -* ]]; then\n"
              "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
              "        return\n"
              "    fi\n"
              "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
              "}\n"
              "complete -o filenames -F _kxrecord kxrecord kxrecord.exe\n";
    return script.str();
}

std::string PowerShellScript(const std::vector<CommandWords>& commands, const std::string& options) {
    std::ostringstream script;
    script << "# PowerShell completion for kxrecord: dot-source this file\n"
              "Register-ArgumentCompleter -Native -CommandName kxrecord, kxrecord.exe -ScriptBlock {\n"
              "    param($word, $line, $position)\n"
              "    $commands = [ordered]@{\n";
    for (const CommandWords& command : commands) {
        script << "        '" << command.name << "' = '" << command.options << "'\n";
    }
    script << "    }\n"
              "    $given = @($line.CommandElements | ForEach-Object { $_.ToString() })\n"
              "    $words = if ($given.Count -gt 1 -and $commands.Contains($given[1]) -and $given[1] -ne $word) {\n"
              "        $commands[$given[1]] -split ' '\n"
              "    } else {\n"
              "        @($commands.Keys) + ('"
           << options
           << "' -split ' ')\n"
              "    }\n"
              "    $words | Where-Object { $_ -like \"$word*\" } |\n"
              "        ForEach-Object { [System.Management.Automation.CompletionResult]::new($_) }\n"
              "}\n";
    return script.str();
}

} // namespace

std::string CompletionScript(const CLI::App& app, const std::string& shell) {
    const std::vector<CommandWords> commands = CommandsOf(app);
    const std::string options = OptionsOf(app);
    return shell == "bash" ? BashScript(commands, options) : PowerShellScript(commands, options);
}

} // namespace kxrecord
