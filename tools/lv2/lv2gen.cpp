// vantor-lv2gen ENGINE PRESET_FOLDER BUNDLE: writes manifest.ttl, vantor.ttl and
// presets.ttl of the plugin bundle from the engine's parameter list and the presets.
// vantor-lv2gen --presets-only ENGINE PRESET_FOLDER BUNDLE: a bundle holding only the
// folder's presets (the user's own, for ~/.lv2), laid over the init beside the engine.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/preset.h"
#include "paramset.h"

using namespace Norvell::HostCore;
using namespace Norvell::Lv2;
namespace fs = std::filesystem;

namespace {

const char* kPrefixes = R"(@prefix atom: <http://lv2plug.in/ns/ext/atom#> .
@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix midi: <http://lv2plug.in/ns/ext/midi#> .
@prefix patch: <http://lv2plug.in/ns/ext/patch#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix rsz: <http://lv2plug.in/ns/ext/resize-port#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix time: <http://lv2plug.in/ns/ext/time#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .

)";

std::string Number(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", double(value));
    std::string s = text;
    if (s.find_first_of(".e") == std::string::npos) s += ".0";
    return s;
}

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

// A preset file and its name for URIs.
struct PresetFile {
    std::string stem;
    Preset preset; // its category names the bank (empty: the factory bank)
};

PresetFile LoadPreset(const fs::path& path) {
    return {path.stem().string(), ReadPreset(path.string())};
}

// "Bass & Sub" -> urn:norvell:vantor:bank:bass-sub
std::string BankUri(const std::string& category) {
    std::string slug;
    for (char c : category.empty() ? std::string("factory") : category) {
        if (std::isalnum(static_cast<unsigned char>(c)))
            slug += char(std::tolower(static_cast<unsigned char>(c)));
        else if (!slug.empty() && slug.back() != '-')
            slug += '-';
    }
    return std::string(kPluginUri) + ":bank:" + slug;
}

struct Param {
    std::string name;
    int32_t steps;
    Role role;
};

// The values of one full sound: init preset, then the preset's own values.
std::vector<float> SoundOf(const std::vector<float>& init, const Preset& preset,
                           const ParamDirectory& params) {
    std::vector<float> values = init;
    for (const auto& v : ResolvePreset(preset, params)) values[v.id] = v.value;
    return values;
}

void WriteState(std::ostream& out, const std::vector<Param>& list, const std::vector<float>& values,
                uint32_t presetMode) {
    const bool ownVoices = values[presetMode] > 0.0f;
    out << "    state:state [\n        <" << kStateVersionUri << "> " << kStateVersion;
    for (size_t id = 0; id < list.size(); ++id) {
        const Param& p = list[id];
        const bool saved = p.role == Role::Writable || p.name == "presetmode" ||
                           (ownVoices && OtherVoiceSound(p.name));
        if (saved)
            out << " ;\n        <" << ParamUri(p.name) << "> \"" << StateText(values[id])
                << "\"^^xsd:float";
    }
    out << "\n    ] .\n\n";
}

// The plugin's description: its parameters (defaults from init), ports and features.
void WritePluginTtl(std::ostream& ttl, const std::vector<Param>& list,
                    const std::vector<float>& init) {
    ttl << kPrefixes;
    for (uint32_t id = 0; id < list.size(); ++id) {
        const Param& p = list[id];
        if (p.role == Role::StateOnly) { // state and preset keys, not shown to hosts
            ttl << "<" << ParamUri(p.name) << ">\n    a rdf:Property ;\n    rdfs:label "
                << Quoted(Label(p.name)) << " ;\n    rdfs:range atom:Float .\n\n";
            continue;
        }
        if (p.role != Role::Writable && p.role != Role::Readable) continue;
        ttl << "<" << ParamUri(p.name) << ">\n    a lv2:Parameter ;\n    rdfs:label "
            << Quoted(Label(p.name)) << " ;\n    rdfs:range atom:Float ;\n    lv2:default "
            << Number(init[id]) << " ;\n    lv2:minimum 0.0 ;\n    lv2:maximum 1.0";
        for (const auto& point : ScalePoints(p.name, p.steps))
            ttl << " ;\n    lv2:scalePoint [ rdfs:label " << Quoted(point.label) << " ; rdf:value "
                << Number(point.value) << " ]";
        ttl << " .\n\n";
    }
    ttl << "<" << kStateVersionUri << ">\n    a rdf:Property ;\n"
        << "    rdfs:label \"State format version\" ;\n    rdfs:range atom:Int .\n\n";
    std::string w, r;
    for (const Param& p : list) {
        std::string& target = p.role == Role::Writable ? w : r;
        if (p.role != Role::Writable && p.role != Role::Readable) continue;
        target += (target.empty() ? "\n        <" : " ,\n        <") + ParamUri(p.name) + ">";
    }
    ttl << "<" << kPluginUri << ">\n"
        << "    a lv2:Plugin , lv2:InstrumentPlugin ;\n"
        << "    doap:name \"Vantor\" ;\n"
        << "    rdfs:comment \"Twelve-voice polyphonic analog-style synthesizer.\" ;\n"
        << "    lv2:requiredFeature urid:map ;\n"
        << "    lv2:optionalFeature lv2:hardRTCapable ;\n"
        << "    lv2:extensionData state:interface ;\n"
        << "    patch:writable" << w << " ;\n"
        << "    patch:readable" << r << " ;\n"
        << R"(    lv2:port [
        a lv2:InputPort , atom:AtomPort ;
        atom:bufferType atom:Sequence ;
        atom:supports midi:MidiEvent , patch:Message , time:Position ;
        lv2:designation lv2:control ;
        lv2:index 0 ;
        lv2:symbol "control" ;
        lv2:name "Control"
    ] , [
        a lv2:OutputPort , atom:AtomPort ;
        atom:bufferType atom:Sequence ;
        atom:supports patch:Message ;
        lv2:designation lv2:control ;
        rsz:minimumSize 16384 ;
        lv2:index 1 ;
        lv2:symbol "notify" ;
        lv2:name "Notify"
    ] , [
        a lv2:OutputPort , lv2:AudioPort ;
        lv2:index 2 ;
        lv2:symbol "out_l" ;
        lv2:name "Left"
    ] , [
        a lv2:OutputPort , lv2:AudioPort ;
        lv2:index 3 ;
        lv2:symbol "out_r" ;
        lv2:name "Right"
    ] .
)";
}

} // namespace

int main(int argc, char** argv) {
    const bool presetsOnly = argc == 5 && std::string(argv[1]) == "--presets-only";
    if (argc != 4 && !presetsOnly) {
        std::fprintf(stderr, "usage: %s [--presets-only] ENGINE PRESET_FOLDER BUNDLE\n", argv[0]);
        return 2;
    }
    if (presetsOnly) ++argv;
    try {
        const fs::path bundle = argv[3];
        const fs::path initFile = fs::exists(fs::path(argv[2]) / "init.json")
                                      ? fs::path(argv[2]) / "init.json"
                                      : fs::path(argv[1]).parent_path() / "init.json";
        // User presets get URIs of their own, so one named like a shipped preset shadows
        // nothing in the host's list.
        const std::string uriKind = presetsOnly ? "user-preset" : "preset";
        const auto presetUri = [&](const std::string& stem) {
            return std::string(kPluginUri) + ":" + uriKind + ":" + stem;
        };
        if (presetsOnly) fs::create_directories(bundle);
        Engine engine(argv[1]);
        engine.Start(48000.0f);
        const ParamDirectory params = engine.ReadParams();
        if (params.Size() == 0) throw std::runtime_error("the engine reports no parameters");
        const auto presetMode = params.Find("presetmode");
        if (!presetMode) throw std::runtime_error("the engine has no presetmode parameter");

        std::vector<fs::path> files;
        for (const auto& entry : fs::directory_iterator(argv[2]))
            if (entry.path().extension() == ".json") files.push_back(entry.path());
        std::sort(files.begin(), files.end());

        ApplyPerformanceDefaults(engine, params);
        for (const auto& v : ResolvePreset(LoadPreset(initFile).preset, params))
            engine.SetParam(v.id, v.value);
        std::vector<float> init(params.Size());
        std::vector<Param> list;
        for (uint32_t id = 0; id < params.Size(); ++id) {
            engine.GetParam(id, init[id]);
            list.push_back({params.At(id).name, params.At(id).steps, RoleOf(params.At(id).name)});
        }

        std::ofstream manifest(bundle / "manifest.ttl");
        manifest << kPrefixes;
        if (!presetsOnly)
            manifest << "<" << kPluginUri << ">\n    a lv2:Plugin ;\n"
                     << "    lv2:binary <vantor_lv2.so> ;\n    rdfs:seeAlso <vantor.ttl> .\n\n";
        for (const auto& file : files)
            manifest << "<" << presetUri(file.stem().string()) << ">\n    a pset:Preset ;\n"
                     << "    lv2:appliesTo <" << kPluginUri << "> ;\n"
                     << "    rdfs:seeAlso <presets.ttl> .\n\n";

        std::ofstream ttl;
        if (!presetsOnly) {
            ttl.open(bundle / "vantor.ttl");
            WritePluginTtl(ttl, list, init);
        }

        std::vector<PresetFile> loaded;
        for (const auto& file : files) loaded.push_back(LoadPreset(file));
        std::ofstream presets(bundle / "presets.ttl");
        presets << kPrefixes;
        std::map<std::string, std::string> banks; // URI -> label
        for (const auto& file : loaded)
            banks.emplace(BankUri(file.preset.category),
                          file.preset.category.empty() ? "Factory" : file.preset.category);
        for (const auto& [uri, label] : banks)
            presets << "<" << uri << ">\n    a pset:Bank ;\n    rdfs:label " << Quoted(label)
                    << " .\n\n";
        for (const auto& file : loaded) {
            presets << "<" << presetUri(file.stem) << ">\n    a pset:Preset ;\n"
                    << "    lv2:appliesTo <" << kPluginUri << "> ;\n"
                    << "    rdfs:label " << Quoted(file.preset.name) << " ;\n"
                    << "    pset:bank <" << BankUri(file.preset.category) << "> ;\n";
            WriteState(presets, list, SoundOf(init, file.preset, params), *presetMode);
        }
        if (!manifest || (!presetsOnly && !ttl) || !presets)
            throw std::runtime_error("cannot write the bundle");
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantor-lv2gen: error: %s\n", e.what());
        return 1;
    }
}
