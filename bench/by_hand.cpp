#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "calls.h"

namespace {

struct Object
{
    std::mutex mutex;
    std::unordered_map<std::string, std::string> params;
};

std::mutex g_Mutex;
std::unordered_set<Object*> g_Objects;
std::shared_ptr<spdlog::logger> g_Log;

Object* ToObject(TarnexAuthHandle handle)
{
    return reinterpret_cast<Object*>(handle);
}

TarnexResult Create(TarnexAuthHandle* phAuth)
{
    const std::lock_guard lock(g_Mutex);
    if (g_Objects.count(ToObject(*phAuth)) != 0)
        return TARNEX_E_HANDLE_EXISTS;
    auto* const object = new Object;
    g_Objects.insert(object);
    *phAuth = reinterpret_cast<TarnexAuthHandle>(object);
    return TARNEX_OK;
}

TarnexResult Destroy(TarnexAuthHandle* phAuth)
{
    const std::lock_guard lock(g_Mutex);
    const auto found = g_Objects.find(ToObject(*phAuth));
    if (found == g_Objects.end()) {
        if (g_Log)
            g_Log->error("CreateAuthHandle() hAuth=[{}] was not found", fmt::ptr(ToObject(*phAuth)));
        return TARNEX_E_HANDLE_NOT_FOUND;
    }
    Object* const object = *found;
    g_Objects.erase(found);
    delete object;
    *phAuth = nullptr;
    return TARNEX_OK;
}

TarnexResult Set(TarnexAuthHandle* phAuth, const char* key, const char* value)
{
    const std::string ownValue = value;
    const std::string ownKey = key;
    const std::lock_guard lock(g_Mutex);
    const auto found = g_Objects.find(ToObject(*phAuth));
    if (found == g_Objects.end())
        return TARNEX_E_HANDLE_NOT_FOUND;
    Object& object = **found;
    if (g_Log)
        g_Log->trace("SetAuthParam() called with key=[{}], value=[{}]", ownKey, ownValue);
    const std::lock_guard objectLock(object.mutex);
    object.params[ownKey] = ownValue;
    if (g_Log)
        g_Log->debug("SetAuthParam(): parameter key=[{}] is set to value=[{}]", ownKey, ownValue);
    return TARNEX_OK;
}

}  // namespace

Calls GetCallsByHand()
{
    return {Create, Destroy, Set};
}

void SetLogByHand(const char* path)
{
    g_Log.reset();
    spdlog::drop_all();
    if (path == nullptr)
        return;
    g_Log = spdlog::basic_logger_mt("ByHand", path);
    g_Log->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e [%L] %v",
                                                                     spdlog::pattern_time_type::local, "\r\n"));
    g_Log->set_level(spdlog::level::trace);
    g_Log->flush_on(spdlog::level::err);
}
