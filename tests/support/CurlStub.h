// The controls of the curl stand-in (tests/stubs/RkCurlStub.c), reached
// through a reference of their own to the loaded module.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ZyUtils/ZyLibrary.h"

namespace zytest
{
struct CurlStub
{
    CZyLibrary library{false};
    long (*calls)(const char*) = nullptr;  // by name; nullptr: all
    void (*reset)() = nullptr;
    long (*globalInitFlags)() = nullptr;
    const char* (*formTrace)() = nullptr;
    void (*failOption)(int, int) = nullptr;
    void (*failInit)(int) = nullptr;
    void (*setPerform)(int, long, double) = nullptr;
    int (*optionCount)() = nullptr;
    int (*option)(int, long long*, const void**, const char**) = nullptr;

    explicit CurlStub(const std::string& path)
    {
        if (path.empty() || library.Load(path.c_str()).IsError())
            return;
        library.GetFunction("rkstub_calls", calls);
        library.GetFunction("rkstub_reset", reset);
        library.GetFunction("rkstub_global_init_flags", globalInitFlags);
        library.GetFunction("rkstub_form_trace", formTrace);
        library.GetFunction("rkstub_fail_option", failOption);
        library.GetFunction("rkstub_fail_init", failInit);
        library.GetFunction("rkstub_set_perform", setPerform);
        library.GetFunction("rkstub_option_count", optionCount);
        library.GetFunction("rkstub_option", option);
    }
    bool Loaded() const { return calls && option; }

    struct Set
    {
        int option;
        long long number;
        const void* pointer;
        std::string text;
        std::string Value() const { return text.empty() ? std::to_string(number) : text; }
    };
    // The options set since the last reset, in order.
    std::vector<Set> Options() const
    {
        std::vector<Set> list;
        for (int i = 0; i < optionCount(); ++i)
        {
            Set set{};
            const char* text = nullptr;
            set.option = option(i, &set.number, &set.pointer, &text);
            set.text = text ? text : "";
            list.push_back(set);
        }
        return list;
    }
    // The last value set for `id` ("" when it was not set).
    std::string Last(int id) const
    {
        std::string value;
        for (const Set& set : Options())
            if (set.option == id)
                value = set.Value();
        return value;
    }
};
}  // namespace zytest
