#pragma once

/**
 * Gives back, at unload, what the statically linked C++ runtime would leave behind with every load of the
 * library. To be constructed before everything else, so that it is destroyed last.
 */
class CRuntimeMemory
{
public:
    CRuntimeMemory() = default;
    ~CRuntimeMemory();
    CRuntimeMemory(const CRuntimeMemory&) = delete;
    CRuntimeMemory& operator=(const CRuntimeMemory&) = delete;
};
