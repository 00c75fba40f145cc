// The library in constant use: reloaded over and over, called from many threads, named at random. The environment
// variable TARNEX_TEST_COUNT says how often, or how many seconds; scripts/soak.sh sets it.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <stdexcept>

#include "host.h"

namespace {

/** What the process uses, counted by hand because Wine does not tell: handles, thread-local slots, private KB. */
std::vector<std::size_t> GetUsage()
{
    std::vector<std::size_t> usage(3);
    DWORD flags = 0;
    for (std::uintptr_t value = 4; value < 0x8000; value += 4)
        usage[0] += ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE;
    usage[1] = ::TlsAlloc();  // the lowest that is free
    ::TlsFree(static_cast<DWORD>(usage[1]));
    MEMORY_BASIC_INFORMATION region;
    for (char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize)
        usage[2] += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize / 1024 : 0;
    return usage;
}

// Loads, writes one message, leaves handles, unloads; again and again in one process. With many expired files the
// clean-up is still running then.
void Reload(int count, int files)
{
    const LogFolder folder;
    std::vector<std::size_t> half(3);
    for (int round = 0; round < count; ++round) {
        folder.AddExpiredFiles(files);
        Library lib;
        EXPECT_EQ(lib.Play("+a +b -0 a.k=" + std::string(50'000, 'x')), "0 0 13 0");
        EXPECT_TRUE(files == 0 || folder.Files().size() > 3) << "the call has waited for the clean-up";
        ASSERT_TRUE(lib.Unload());
        ASSERT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
        ASSERT_EQ(ReadLog(folder.LogPath()), (Lines{"[O] Created Tarnex Logger level [error]", kNoHandle}));
        fs::remove(folder.LogPath());
        if (round == count / 2)
            half = GetUsage();
    }
    const std::vector<std::size_t> full = GetUsage();
    EXPECT_LE(full[0], half[0]) << "handles";
    EXPECT_LE(full[1], half[1]) << "thread-local slots";
    EXPECT_LE(full[2], half[2] + 256) << "private KB";
}

TEST(Stress, UnloadDuringPass)
{
    Reload(GetCount(1), 4000);
}

TEST(Stress, Reload)
{
    Reload(GetCount(50), 0);
}

// Random calls of a thread on handles of its own against a model, and now and then on another's. Returns how many
// handles are left.
std::ptrdiff_t Walk(Library lib, int number, int steps, int seconds)
{
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
    static std::atomic<TarnexAuthHandle> shown[8];
    std::mt19937 random(static_cast<unsigned>(number) + 7);
    std::set<std::string> model;  // the variables that hold a handle, as in "a", and their parameters, as in "a.k"
    for (int step = 0; step < steps || ::GetTickCount64() < end; ++step) {
        const std::string variable(1, "abcd"[random() % 4]), value = std::to_string(step);
        const bool alive = model.count(variable) != 0;
        std::string call = variable + "." + std::to_string(number) + "abcdefgh"[random() % 8],
                    expected = alive ? "0" : "13";
        switch (random() % 6) {
            case 0:
                call = "+" + variable;
                expected = model.insert(variable).second ? "0" : "14";
                break;
            case 1:
                call = "-" + variable;
                std::erase_if(model, [&](const std::string& name) { return name[0] == variable[0]; });
                break;
            case 2:
                expected = alive && model.erase(call) == 0 ? "16" : expected;
                break;
            case 3:
                shown[number] = lib.variables[variable[0]];
                lib.variables['x'] = shown[random() % 8];
                lib.Play("x.x=" + value + " x.x");
                call = random() % 64 == 0 ? "@" + std::to_string(random() % 7) : "!";
                expected = "0";
                break;
            default:
                if (alive)
                    model.insert(call);
                call += "=" + value;
        }
        EXPECT_EQ(lib.Play(call), expected) << call;
    }
    return std::count_if(model.begin(), model.end(), [](auto& name) { return name.size() == 1; });
}

// Walks of so many threads. The log holds no torn line, each thread's in their order, and one for each handle left.
void Walks(int threads, const std::string& level, int steps, int seconds)
{
    const LogFolder folder;
    Library lib;
    lib.Play("-0 @" + level);
    std::atomic<std::ptrdiff_t> handles{0};
    RunThreads(threads, [&](int number) { handles += Walk(lib, number, steps, seconds); });
    lib.Play("@1");
    EXPECT_TRUE(lib.Unload());

    std::map<char, long> next;
    const Lines log = ReadLog(folder.LogPath());
    const std::string set = "[D] SetAuthParam(): parameter key=[";
    for (const std::string& line : log) {
        EXPECT_EQ(line[0], '[') << line;
        if (line.starts_with(set) && line[set.size()] != 'x') {
            const long step = std::stol(line.substr(line.rfind('[') + 1));
            EXPECT_LE(std::exchange(next[line[set.size()]], step + 1), step) << line;
        }
    }
    EXPECT_EQ(std::count(log.begin(), log.end(), kLeftBehind), handles);
    EXPECT_GE(std::ssize(next), level == "0" ? threads : 0);
}

TEST(Stress, Mixed)
{
    Walks(8, "0", 0, GetCount(2));
}

TEST(Stress, Model)
{
    Walks(1, "6", GetCount(50'000), 0);
}

// Meanwhile the log's disk, which TARNEX_LOG_DIR names, fills up or goes away: somebody else sees to that.
TEST(Stress, Disk)
{
    Library lib;
    lib.Play("@0 -0");
    Walk(lib, 0, 0, GetCount(0));
    EXPECT_TRUE(lib.Unload());
}

// Random bytes, and random characters, as log names.
TEST(Stress, Names)
{
    const LogFolder folder;
    Library lib;
    std::mt19937 random(11);
    std::size_t created = 0;
    for (int i = GetCount(500); i > 0; --i) {
        std::string name(random() % 40, ' ');
        for (char& byte : name)  // no colon: it would name a stream of another file
            byte = i % 2 == 0 ? static_cast<char>(random() % 197 + 59) : "abc\xC3\xA4<?\"|*/.\\-"[random() % 14];
        try {
            created += lib.tarnexSetLogName(name.c_str()) == TARNEX_OK;
        } catch (const std::range_error& error) {
            EXPECT_STREQ(error.what(), "bad conversion");
        }
    }
    EXPECT_EQ(folder.Files().size(), created);
    EXPECT_TRUE(lib.Unload());
}

}  // namespace
