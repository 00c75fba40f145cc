// The library at the worst moments. "stress MOMENT COUNT" goes through one moment so many times (or seconds),
// prints a row "MOMENT | COUNT | what went wrong", and exits with 1 when anything did.
#include "stress.h"

#include <random>
#include <set>
#include <span>
#include <stdexcept>

namespace {

/**
 * Starts this program with the arguments; null when that cannot be done. Wine fails to start one process in
 * some thousands, before any of its code runs (also programs without the library), so it is asked again.
 */
HANDLE StartProcess(const std::string& arguments)
{
    wchar_t program[MAX_PATH];
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"stress " + fs::path(arguments).wstring();
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    for (int attempt = 0; attempt < 3 && process.hProcess == nullptr; ++attempt)
        ::CreateProcessW(program, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process);
    ::CloseHandle(process.hThread);
    return process.hProcess;
}

/** Runs a process time after time and has each one's log checked. One that takes a minute hangs. */
void RunProcesses(const std::string& name, const ProcessMoment& moment, int count)
{
    for (int round = 0; round < count; ++round) {
        const LogFolder folder;
        folder.AddExpiredFiles(name == "first-at-unload" ? 1 : 0);
        const HANDLE process = StartProcess("--child " + name + " " + std::to_string(round));
        if (::WaitForSingleObject(process, 60'000) != WAIT_OBJECT_0) {
            Check(false, process == nullptr ? "a process did not start" : "hang");
            ::TerminateProcess(process, 1);
            continue;
        }
        DWORD code = 0;
        ::GetExitCodeProcess(process, &code);
        ::CloseHandle(process);
        Check(code == 0, "exit code " + std::to_string(code));
        const Lines files = folder.Files();
        Check(files.size() <= 1, std::to_string(files.size()) + " files instead of the log alone");
        const Lines log = files.empty() ? Lines() : ReadLog(folder.path / files[0]);
        CheckLines(log, moment.expect(log, round));
    }
}

/** What the process uses, counted by hand because Wine does not tell: handles, thread-local slots, private KB. */
std::vector<std::size_t> GetUsage()
{
    std::vector<std::size_t> usage(3);
    DWORD flags = 0;
    for (std::uintptr_t value = 4; value < 0x8000; value += 4)
        usage[0] += ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE;
    std::vector<DWORD> left;
    for (DWORD slot; (slot = ::TlsAlloc()) != TLS_OUT_OF_INDEXES;)
        left.push_back(slot);
    for (const DWORD slot : left)
        ::TlsFree(slot);
    usage[1] = 1088 - left.size();
    MEMORY_BASIC_INFORMATION region;
    for (char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize)
        usage[2] += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize / 1024 : 0;
    return usage;
}

// Loads, writes one message, leaves a handle, unloads; again and again in one process. With many expired files the
// clean-up is still running then.
void Reload(int count, int files)
{
    const LogFolder folder;
    const auto run = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            folder.AddExpiredFiles(files);
            Library lib;
            lib.Play("+a +b -0 a.k=" + std::string(50'000, 'x'));
            Check(lib.Unload(), "the module stays");
            Check(folder.Files() == Lines{"Tarnex-PID.log"}, "the pass is not over");
            CheckLines(ReadLog(folder.LogPath()), FirstMessage("error"));
            fs::remove(folder.LogPath());
        }
        return GetUsage();
    };
    const auto half = run(count - count / 2), full = run(count / 2);
    for (std::size_t what = 0; what < 3; ++what) {
        const char* const names[] = {"handles", "thread-local slots", "private KB"};
        std::printf("%s %zu to %zu, ", names[what], half[what], full[what]);
        Check(full[what] <= half[what] + (what == 2 ? 256u : 0u), names[what] + std::string(" grow"));
    }
}

// Random calls of a thread on handles of its own against a model, and now and then on another's. Returns how many
// handles are left.
std::size_t Walk(Library lib, int number, const std::function<bool(int)>& goOn)
{
    static std::atomic<TarnexAuthHandle> shown[8];
    std::mt19937 random(static_cast<unsigned>(number) + 7);
    std::map<std::string, std::set<std::string>> live;  // the variables that hold a handle, with its keys
    for (int step = 0; goOn(step); ++step) {
        const std::string variable(1, "abcd"[random() % 4]), key = std::to_string(number) + "abcdefgh"[random() % 8];
        const std::string parameter = std::string(variable).append(".").append(key);
        const auto known = live.find(variable);
        const bool alive = known != live.end();
        std::string call, expected = alive ? "0" : "13";
        switch (random() % 6) {
            case 0:
                call = "+" + variable;
                expected = live.try_emplace(variable).second ? "0" : "14";
                break;
            case 1:
                call = "-" + variable;
                live.erase(variable);
                break;
            case 2:
                call = parameter;
                expected = alive && known->second.erase(key) == 0 ? "16" : expected;
                break;
            case 3:
                shown[number] = lib.variables[variable[0]];
                lib.variables['x'] = shown[random() % 8];
                lib.Play("x.x=" + std::to_string(step) + " x.x");
                call = random() % 64 == 0 ? "@" + std::to_string(random() % 7) : "!";
                expected = "0";
                break;
            default:
                call = std::string(parameter).append("=").append(std::to_string(step));
                if (alive)
                    known->second.insert(key);
        }
        const std::string result = lib.Play(call);
        Check(result == expected, call.append(" gave ").append(result));
    }
    return live.size();
}

// Walks of so many threads. The log holds no torn line, each thread's in their order, and one for each handle left.
void Walks(int threads, uint32_t level, const std::function<bool(int)>& goOn)
{
    const LogFolder folder;
    Library lib;
    lib.Play("-0 @" + std::to_string(level));
    std::atomic<std::size_t> handles{0};
    RunThreads(threads, [&](int number) { handles += Walk(lib, number, goOn); });
    lib.Play("@1");
    Check(lib.Unload(), "the module stays");

    std::map<char, long> last;
    const Lines log = ReadLog(folder.LogPath());
    const std::string set = "[D] SetAuthParam(): parameter key=[";
    for (const std::string& line : log) {
        Check(line[0] == '[', line);
        if (line.rfind(set, 0) == 0 && line[set.size()] != 'x') {
            const long step = std::atol(line.c_str() + line.rfind('[') + 1);
            long& before = last.try_emplace(line[set.size()], -1).first->second;
            Check(step > before, "out of order: " + line);
            before = step;
        }
    }
    Check(std::count(log.begin(), log.end(), kLeftBehind) == static_cast<long>(handles), "handles without a line");
    Check(level != 0 || std::ssize(last) == threads, "threads without a line");
}

// The log's disk, which the caller provides in TARNEX_LOG_DIR, fills up or goes away meanwhile.
void Disk(const std::function<bool(int)>& goOn)
{
    Library lib;
    lib.Play("@0 -0");
    Walk(lib, 0, goOn);
    Check(lib.Unload(), "the module stays");
}

// Random bytes, and random characters, as log names.
void Names(int count)
{
    const LogFolder folder;
    Library lib;
    std::mt19937 random(11);
    std::size_t created = 0;
    for (int i = 0; i < count; ++i) {
        std::string call(random() % 40 + 1, '#');
        for (char& byte : std::span(call).subspan(1))  // no colon: it would name a stream of another file
            byte = i % 2 == 0 ? static_cast<char>(random() % 197 + 59) : "abc\xC3\xA4<?\"|*/.\\-"[random() % 14];
        try {
            const std::string result = lib.Play(call);
            Check(result == "0" || result == "7", "result " + result);
            created += result == "0";
        } catch (const std::range_error& error) {
            Check(error.what() == std::string("bad conversion"), error.what());
        }
    }
    Check(folder.Files().size() == created && created > 0, "files without a 0");
    Check(lib.Unload(), "the module stays");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string moment = argc >= 3 ? argv[argc - 2] : "";
    const int count = argc >= 3 ? std::atoi(argv[argc - 1]) : 0;
    SetEnv(L"TARNEX_LOG_LEVEL", L"");
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(count) * 1000;
    const auto inTime = [=](int) { return ::GetTickCount64() < end; };
    const std::map<std::string, std::function<void()>> moments = {
        {"unload-during-pass", [&] { Reload(count, 4000); }},
        {"reload", [&] { Reload(count, 0); }},
        {"mixed", [&] { Walks(8, 0, inTime); }},
        {"model", [&] { Walks(1, 6, [&](int step) { return step < count; }); }},
        {"names", [&] { Names(count); }},
        {"disk", [&] { Disk(inTime); }}};
    const auto process = g_ProcessMoments.find(moment);
    if (argc == 4) {
        process->second.run(count);
        return g_Failures == 0 ? 0 : 1;
    }
    if (process == g_ProcessMoments.end() && moments.count(moment) == 0) {
        std::fprintf(stderr, "usage: stress MOMENT COUNT\n");
        return 2;
    }
    std::printf("%-20s | %9d | ", moment.c_str(), count);
    if (process != g_ProcessMoments.end())
        RunProcesses(moment, process->second, count);
    else
        moments.at(moment)();
    std::printf("%d: %s\n", g_Failures.load(), g_FirstFailure.c_str());
    return g_Failures == 0 ? 0 : 1;
}
