#include "cli/commands/serve.h"

#include "cli/commands/picture.h"
#include "cli/commands/request_reader.h"
#include "cli/options/command_line.h"
#include "cli/options/usage_error.h"
#include "cli/program.h"
#include "io/atomic_file.h"
#include "io/input_places.h"
#include "qn_core/core_log.h"
#include "qn_sys/sys_thread.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <memory>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace sds_cli {

namespace {

using Json = nlohmann::json;

constexpr std::size_t tile_pixels = std::size_t{sds_render::tile_size} * sds_render::tile_size;

/// Options that change neither the picture nor what is in its file.
const std::set<std::string> immaterial{"--output", "--threads",   "--memory-limit", "--texture-limit",
                                       "--quiet",  "--log-level", "--verbose",      "--stats"};

/// The command line of a picture behind `sds render`.
struct PictureWords {
    RenderCommandOptions options;
    Json given = Json::object();  ///< what of it the picture depends on, by option

    explicit PictureWords(const Json& arguments) {
        std::vector<std::string> words{"sds", "render"};
        for (const Json& word : arguments) words.push_back(word.get<std::string>());
        std::vector<const char*> argv;
        for (const std::string& word : words) argv.push_back(word.c_str());
        words = read_words(static_cast<int>(argv.size()), argv.data());
        CLI::App program("", "sds");
        CLI::App& command = *program.add_subcommand("render", "");
        add_render_options(command, options);
        try {
            program.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        } catch (const CLI::ParseError& error) {
            throw UsageError(describe_parse_error(program, error, words));
        }
        for (const CLI::Option* option : command.get_options())
            if (option->count() > 0 && !immaterial.contains(option->get_name()))
                given[option->get_name()] = option->results();
    }
};

const char* kind_name(sds_render::ChannelKind kind) {
    switch (kind) {
        case sds_render::ChannelKind::color:
            return "color";
        case sds_render::ChannelKind::data:
            return "data";
        case sds_render::ChannelKind::id:
            break;
    }
    return "id";
}

sds_render::ChannelKind to_kind(const std::string& name) {
    for (const auto kind : {sds_render::ChannelKind::color, sds_render::ChannelKind::data, sds_render::ChannelKind::id})
        if (name == kind_name(kind)) return kind;
    throw std::runtime_error("request: no kind of channel is called '" + name + "'");
}

/// Calls `take` with the memory of every channel, as bytes.
template <class SomeImage, class Take>
void for_each_channel_memory(SomeImage& image, const Take& take) {
    for (const sds_render::Channel& known : image.get_channels()) {
        auto& channel = *image.find_channel(known.name);
        if (channel.kind == sds_render::ChannelKind::id)
            take(channel.ids.data(), channel.ids.size() * sizeof(channel.ids[0]));
        else
            take(channel.values.data(), channel.values.size() * sizeof(channel.values[0]));
    }
}

struct Answer {
    Json head = Json::object();
    std::string bytes;
};

/// Scenes that requests have opened, the last ones.
class Server {
public:
    Answer answer(const Request& request) {
        const Json head = Json::parse(request.head);
        const std::string what = head.at("do").get<std::string>();
        if (what == "check") return check(head);
        if (what == "open") return open(head);
        if (what == "render") return render(head);
        if (what == "write") return write(head, request.bytes);
        throw std::runtime_error("request: there is nothing to do that is called '" + what + "'");
    }

private:
    struct OpenScene {
        std::string name;
        InputPlaces places;  ///< time samples are read when they are first asked for
        std::unique_ptr<SysThreadArena> arena;
        std::unique_ptr<Picture> picture;
    };
    /// A worker goes from frame to frame, and tiles of the one before may come late.
    static constexpr std::size_t most_scenes = 2;

    static Answer check(const Json& head) {
        const PictureWords words(head.at("arguments"));
        check_picture(words.options);
        if (words.options.output == "-") throw UsageError("--output: the farm writes files");
        check_picture_files(words.options);
        const std::vector<sds_render::ImageArea> areas = picture_areas(words.options);
        std::vector<std::string> meshes{words.options.mesh};
        meshes.insert(meshes.end(), words.options.further_meshes.begin(), words.options.further_meshes.end());
        return {{{"meshes", meshes},
                 {"files", picture_files(words.options)},
                 {"tiles", areas.size() * sds_render::count_tiles(areas[0].width, areas[0].height)},
                 {"given", words.given},
                 {"is_layer", is_layer(words.options.mesh)},
                 {"threads", words.options.threads},
                 {"quiet", words.options.quiet}},
                {}};
    }

    Answer open(const Json& head) {
        const auto begin = std::chrono::steady_clock::now();
        const PictureWords words(head.at("arguments"));
        CoreLogHandler::s_main_log_handler->set_level(words.options.quiet ? 0 : words.options.log_level);
        OpenScene scene{head.at("scene").get<std::string>(), {head.at("folder").get<std::string>(), {}}, {}, {}};
        head.at("places").get_to(scene.places.places);
        m_scenes.remove_if([&](const OpenScene& each) { return each.name == scene.name; });
        if (m_scenes.size() == most_scenes) m_scenes.pop_back();
        const unsigned int threads = words.options.threads;
        scene.arena = std::make_unique<SysThreadArena>(threads != 0 ? threads : head.at("threads").get<unsigned int>());
        set_input_places(scene.places);
        check_picture(words.options);
        scene.arena->execute([&] { scene.picture = std::make_unique<Picture>(words.options, nullptr); });
        m_scenes.push_front(std::move(scene));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        return {{{"seconds", taken.count()}, {"inputs", get_located_inputs()}}, {}};
    }

    Answer render(const Json& head) {
        const auto scene = std::find_if(m_scenes.begin(), m_scenes.end(),
                                        [&](const OpenScene& each) { return each.name == head.at("scene"); });
        if (scene == m_scenes.end()) return {{{"is_open", false}}, {}};
        m_scenes.splice(m_scenes.begin(), m_scenes, scene);
        set_input_places(scene->places);
        const auto tiles = head.at("tiles").get<std::vector<unsigned int>>();
        std::vector<double> seconds;
        std::optional<sds_render::Rendering> strip;
        scene->arena->execute([&] { strip.emplace(scene->picture->render_tiles(tiles, seconds)); });
        Answer answer;
        Json channels = Json::array();
        for (const sds_render::Channel& channel : strip->image.get_channels())
            channels.push_back({channel.name, kind_name(channel.kind)});
        for_each_channel_memory(strip->image, [&](const void* memory, std::size_t size) {
            answer.bytes.append(static_cast<const char*>(memory), size);
        });
        answer.head = {{"is_open", true},
                       {"channels", channels},
                       {"tile_seconds", seconds},
                       {"seconds", strip->statistics.seconds},
                       {"rays", strip->statistics.rays}};
        return answer;
    }

    /// Parts hold their tiles as render() answers them, one after the other.
    static Answer write(const Json& head, const std::string& bytes) {
        const PictureWords words(head.at("arguments"));
        sds_render::Image picture(words.options.width, words.options.height);
        const auto add_channels = [&](sds_render::Image& image) {
            for (const Json& channel : head.at("channels"))
                image.add_channel(channel.at(0).get<std::string>(), to_kind(channel.at(1).get<std::string>()));
        };
        add_channels(picture);
        const std::vector<sds_render::ImageArea> areas = picture_areas(words.options);
        const std::size_t count = areas.size() * sds_render::count_tiles(areas[0].width, areas[0].height);
        std::vector<bool> is_there(count);
        std::size_t place = 0;
        for (const Json& part : head.at("parts")) {
            const auto tiles = part.get<std::vector<unsigned int>>();
            sds_render::Image strip(sds_render::tile_size,
                                    sds_render::tile_size * static_cast<unsigned int>(tiles.size()));
            add_channels(strip);
            const std::size_t size = tiles.size() * tile_pixels * sizeof(float) * picture.get_channels().size();
            if (size > bytes.size() - place || tiles.empty() || *std::max_element(tiles.begin(), tiles.end()) >= count)
                throw std::runtime_error("request: the parts are not those of the picture");
            for_each_channel_memory(strip, [&](void* memory, std::size_t channel_size) {
                std::memcpy(memory, bytes.data() + place, channel_size);
                place += channel_size;
            });
            paste_tiles(words.options, strip, tiles, picture);
            for (const unsigned int tile : tiles) is_there[tile] = true;
        }
        if (std::find(is_there.begin(), is_there.end(), false) != is_there.end())
            throw std::runtime_error("request: tiles of the picture are missing");
        write_picture(words.options, picture, head.at("note").get<std::string>());
        return {};
    }

    std::list<OpenScene> m_scenes;
};

Answer refuse(const std::exception& error, int code) { return {{{"error", error.what()}, {"code", code}}, {}}; }

Answer try_answer(Server& server, const Request& request) {
    try {
        return server.answer(request);
    } catch (const InputError& error) {
        return refuse(error, exit_refused);
    } catch (const UsageError& error) {
        return refuse(error, exit_refused);
    } catch (const std::exception& error) {
        return refuse(error, exit_failure);
    }
}

void send(Answer&& answer) {
    answer.head["bytes"] = answer.bytes.size();
    AtomicFile out("-");
    out.write(answer.head.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n");
    out.write(answer.bytes);
    out.commit();
}

void run_serve(const CommonOptions&) {
    send({{{"version", QN_SDS_VERSION}}, {}});
    RequestReader reader;
    Server server;
    for (;;) send(try_answer(server, reader.next()));
}

}  // namespace

void add_serve_command(CLI::App& program, Action& action) {
    CLI::App& command =
        *program.add_subcommand("serve", "Render parts of pictures for python3 -m qn_sds.farm, until its input ends");
    command.group("");  // not for people: no help names it
    set_action(command, action, std::make_shared<CommonOptions>(), run_serve);
}

}  // namespace sds_cli
