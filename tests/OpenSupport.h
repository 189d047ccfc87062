#pragma once

#include <functional>

/// Calls `onOpen` before each file that this thread opens, in any library, for as long as it lives. What it returns is
/// the `errno` with which the opening fails; 0 lets it go on. What `onOpen` opens itself is not told.
class OpenHook
{
public:
    explicit OpenHook(std::function<int()> onOpen);
    ~OpenHook();
    OpenHook(OpenHook const&) = delete;
    OpenHook& operator=(OpenHook const&) = delete;

    int call();

private:
    std::function<int()> const m_onOpen;
    bool m_isCalled = false;
};
