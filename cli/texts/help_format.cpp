#include "cli/texts/help_format.h"

#include <CLI/CLI.hpp>
#include <sstream>

namespace sds_cli {

namespace {

constexpr std::size_t line_width = 100;
constexpr std::size_t name_width = 30;

/// Breaks text between words; lines after the first begin with `indent` blanks.
std::string wrap(const std::string& text, std::size_t width, std::size_t indent) {
    std::istringstream words(text);
    std::string out;
    std::size_t column = 0;
    for (std::string word; words >> word; column += word.size()) {
        if (column > 0 && column + 1 + word.size() > width) {
            out += '\n' + std::string(indent, ' ');
            column = 0;
        } else if (column > 0) {
            out += ' ';
            ++column;
        }
        out += word;
    }
    return out;
}

class WrappingFormatter : public CLI::Formatter {
public:
    WrappingFormatter() { column_width(name_width); }

    std::string make_option(const CLI::Option* option, bool is_positional) const override {
        std::string name = "  " + make_option_name(option, is_positional) + make_option_opts(option);
        name +=
            name.size() < name_width ? std::string(name_width - name.size(), ' ') : "\n" + std::string(name_width, ' ');
        return name + wrap(make_option_desc(option), line_width - name_width, name_width) + "\n";
    }
};

struct CommandExamples {
    const char* command;
    const char* lines;
};

/// One a line, without the prompt; "" is the program. They run where cage.obj, a cage with UVs, is; files that they
/// name are made by the examples before.
constexpr CommandExamples all_examples[] = {
    {"",
     "sds info cage.obj\n"
     "sds render cage.obj -o picture.png\n"
     "sds export cage.obj --tessellation surface.obj --level 3\n"},
    {"info",
     "sds info cage.obj\n"
     "sds info cage.obj --json --quiet > cage.json\n"
     "sds info cage.obj --interpolation smooth\n"},
    {"render",
     "sds render cage.obj -o picture.png\n"
     "sds render cage.obj -o close.png --view -30 10 --samples 4 --wire\n"
     "sds render cage.obj -o layers.exr --aov N,Z,id\n"
     "sds render cage.obj -o checks.png --checker --samples 4\n"
     "sds render cage.obj -o flat.png --level 2 --samples 4\n"
     "sds render cage.obj -o sheet.png --turntable 8 --samples 4\n"
     "sds export cage.obj --tessellation other.obj && sds render cage.obj other.obj -o both.png\n"
     "sds render cage.obj -o - > picture.png\n"},
    {"export",
     "sds export cage.obj --patches patches.npy\n"
     "sds export cage.obj --tessellation surface.obj --level 3\n"
     "sds export cage.obj --samples 4 samples.npy --uv 4 uvs.npy\n"
     "sds export cage.obj --patches - > patches.npy\n"},
    {"intersect",
     "echo 0.1 0.2 9 0 0 -1 | sds intersect cage.obj --rays - --hits hits.npy\n"
     "python3 -c \"import numpy; numpy.save('rays.npy', [[0.1, 0.2, 9, 0, 0, -1, 0, numpy.inf]])\"\n"
     "sds intersect cage.obj --rays rays.npy --hits hits.npy\n"
     "sds intersect cage.obj --rays rays.npy --hits hits.npy --samples --level 4\n"},
    {"select",
     "echo '{\"sides\": [[1, 0, 0, 0]]}' > frustum.json\n"
     "sds select cage.obj --frustum frustum.json --mode touch\n"
     "sds select cage.obj --frustum frustum.json --mode inside --json\n"},
};

const char* get_examples(const std::string& command) {
    for (const CommandExamples& examples : all_examples)
        if (command == examples.command) return examples.lines;
    return "";
}

std::string make_footer(const std::string& command) {
    std::istringstream lines(get_examples(command));
    std::string footer = "Examples:";
    for (std::string line; std::getline(lines, line);) footer += "\n  " + line;
    if (command.empty())
        footer +=
            "\n\nsds help COMMAND tells more, with examples. MESH and the files may be - for standard input and "
            "output.\nExit codes: 0 done, 1 failed, 2 wrong usage or unusable input, "
            "130 interrupted.";
    return footer;
}

}  // namespace

void add_help(CLI::App& program) {
    const auto formatter = std::make_shared<WrappingFormatter>();
    program.formatter(formatter);
    program.footer(make_footer(""));
    for (CLI::App* command : program.get_subcommands({})) {
        command->formatter(formatter);
        command->footer(make_footer(command->get_name()));
    }
}

}  // namespace sds_cli
