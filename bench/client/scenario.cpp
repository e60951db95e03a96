// SPDX-License-Identifier: Apache-2.0
#include "scenario.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

bool MapFile(const std::string& path, Content& out)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info = {};
    bool done = fstat(fd, &info) == 0;
    if (done && info.st_size > 0) {
        void* data = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_SHARED, fd, 0);
        done = data != MAP_FAILED;
        if (done)
            out = {static_cast<const char*>(data), static_cast<size_t>(info.st_size)};
    }
    close(fd);
    return done;
}

template <class T> bool Number(std::string_view text, T& out)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), out);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::pair<std::string, std::string> FirstWord(const std::string& text)
{
    const size_t end = text.find(' ');
    if (end == std::string::npos)
        return {text, ""};
    return {text.substr(0, end), text.substr(end + 1)};
}

std::string Unescaped(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
            out += '\n';
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

bool Statuses(std::string rest, std::vector<int>& out)
{
    while (!rest.empty()) {
        auto [word, more] = FirstWord(rest);
        int status = 0;
        if (!Number(word, status))
            return false;
        out.push_back(status);
        rest = more;
    }
    return !out.empty();
}

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A line that belongs to the whole; false when it is none of those.
bool ReadGeneral(const std::string& word, const std::string& rest, Scenario& out, bool& right)
{
    if (word == "connections")
        right = Number(rest, out.connections) && out.connections > 0;
    else if (word == "duration")
        right = (out.duration = std::atof(rest.c_str())) > 0;
    else if (word == "sequences")
        right = Number(rest, out.sequences) && out.sequences > 0;
    else if (word == "modulo")
        right = Number(rest, out.modulo) && out.modulo > 0;
    else if (word == "random")
        right = Number(rest, out.random) && out.random > 0;
    else
        return false;
    return true;
}

bool ReadStepLine(const std::string& word, const std::string& rest, Step& step)
{
    if (word == "header") {
        step.headers.push_back(rest);
        return rest.find(": ") != std::string::npos;
    }
    if (word == "body") {
        step.body = Unescaped(rest);
        return true;
    }
    if (word == "body-file") {
        step.hasBodyFile = true;
        return MapFile(rest, step.bodyFile);
    }
    if (word == "random-range") {
        auto [path, length] = FirstWord(rest);
        return MapFile(path, step.rangeFile) && Number(length, step.rangeLength) &&
               step.rangeLength > 0 && step.rangeLength <= step.rangeFile.size;
    }
    if (word == "expect")
        return Statuses(rest, step.expected);
    if (word == "reply-file") {
        step.hasReplyFile = true;
        return MapFile(rest, step.replyFile);
    }
    if (word == "reply-length")
        return Number(rest, step.replyLength) && step.replyLength >= 0;
    if (word == "capture") {
        auto [name, header] = FirstWord(rest);
        step.captures.emplace_back(name, Lower(header));
        return !header.empty();
    }
    std::string* text = word == "reply-has"       ? &step.replyHas
                        : word == "capture-token" ? &step.token
                        : word == "needs"         ? &step.needs
                        : word == "takes"         ? &step.takes
                        : word == "gives"         ? &step.gives
                                                  : nullptr;
    if (!text)
        return false;
    *text = rest;
    return !rest.empty();
}

} // namespace

std::string ReadScenario(const std::string& path, Scenario& out)
{
    std::ifstream file(path);
    if (!file)
        return path + ": cannot be read";
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#')
            continue;
        const auto [word, rest] = FirstWord(line.substr(start));
        bool right = true;
        if (word == "step") {
            const auto [method, target] = FirstWord(rest);
            Step step;
            step.method = method;
            step.target = target;
            out.steps.push_back(std::move(step));
            right = !target.empty();
        } else if (!ReadGeneral(word, rest, out, right)) {
            right = !out.steps.empty() && ReadStepLine(word, rest, out.steps.back());
        }
        if (!right)
            return path + ":" + std::to_string(number) + ": not understood: " + line;
    }
    for (Step& step : out.steps) {
        if (step.expected.empty())
            step.expected.push_back(step.rangeLength ? 206 : 200);
    }
    if (out.steps.empty())
        return path + ": holds no step";
    if (out.duration <= 0 && out.sequences == 0)
        return path + ": says neither duration nor sequences";
    return "";
}

} // namespace bench
