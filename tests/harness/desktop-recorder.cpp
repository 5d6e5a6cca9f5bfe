// A fake xdg-open, or a fake application that xdg-open starts. Writes its arguments and
// surroundings to the file FAKE_RECORD, which is complete as soon as it exists. Then it ends as its
// argument says:
//
//     exit:N     with status N                  signal:N   by signal N
//     late:N     with status N, after 0.6 s     sleep:     after 8 s
//     stop:      like sleep:, after stopping its parent
//
// Otherwise it ends with the status FAKE_STATUS (default: 0), after 8 s if FAKE_SLEEP is set.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int highest_descriptor = 9999;
constexpr int long_sleep_milliseconds = 8000;

std::string setting(const char *name)
{
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string link_target(const std::string &path)
{
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? "none" : std::string(target, static_cast<std::size_t>(length));
}

std::string open_descriptors()
{
    std::string numbers;
    for (int number = 0; number <= highest_descriptor; ++number) {
        if (fcntl(number, F_GETFD) >= 0)
            numbers += " " + std::to_string(number);
    }
    return numbers;
}

// Returns the value of a line of /proc/self/status.
std::string status_line(const std::string &name)
{
    std::FILE *file = std::fopen("/proc/self/status", "r");
    if (file == nullptr)
        return "unknown";
    char line[512];
    std::string rest = "missing";
    while (std::fgets(line, sizeof line, file) != nullptr) {
        line[std::strcspn(line, "\n")] = '\0';
        if (std::strncmp(line, name.c_str(), name.size()) == 0)
            rest = line + name.size() + 2; // ':' and a tab
    }
    std::fclose(file);
    return rest;
}

std::string collect(int argument_count, char **arguments)
{
    std::string text = "descriptors:" + open_descriptors() + "\n";
    for (int stream = 0; stream <= 2; ++stream)
        text += "stream: " + link_target("/proc/self/fd/" + std::to_string(stream)) + "\n";
    text += "blocked: " + status_line("SigBlk") + "\nignored: " + status_line("SigIgn") + "\n";
    text += "folder: " + link_target("/proc/self/cwd") + "\n";
    text += "mark: " + setting("FAKE_MARK") + "\n";
    text += "process: " + std::to_string(getpid()) + "\n";
    text += "session: " + std::to_string(getsid(0)) + "\n";
    text += "group: " + std::to_string(getpgrp()) + "\n";
    text += "arguments: " + std::to_string(argument_count - 1) + "\n";
    for (int i = 1; i < argument_count; ++i)
        text += std::string("argument: ") + arguments[i] + "\n";
    return text;
}

bool write_record(const std::string &path, const std::string &text)
{
    if (path.empty())
        return true;
    const std::string unfinished = path + "." + std::to_string(getpid());
    std::FILE *file = std::fopen(unfinished.c_str(), "w");
    if (file == nullptr)
        return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written && std::rename(unfinished.c_str(), path.c_str()) == 0;
}

void sleep_milliseconds(int milliseconds)
{
    poll(nullptr, 0, milliseconds);
}

int exit_status(const std::string &argument)
{
    const std::size_t colon = argument.find(':');
    const std::string action = argument.substr(0, colon);
    const int number = colon == std::string::npos ? 0 : std::atoi(argument.c_str() + colon + 1);
    if (action == "late")
        sleep_milliseconds(600);
    if (action == "exit" || action == "late")
        return number;
    if (action == "signal")
        std::raise(number);
    if (action == "stop")
        kill(getppid(), SIGSTOP);
    if (action == "stop" || action == "sleep" || !setting("FAKE_SLEEP").empty())
        sleep_milliseconds(long_sleep_milliseconds);
    return std::atoi(setting("FAKE_STATUS").c_str());
}

} // namespace

int main(int argument_count, char **arguments)
{
    if (!write_record(setting("FAKE_RECORD"), collect(argument_count, arguments)))
        return 99;
    return exit_status(argument_count > 1 ? arguments[1] : "");
}
