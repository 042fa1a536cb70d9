/* A small loadable module for the module-loading tests: one exported
   function whose result the tests can check. */
#if defined(_WIN32)
#define ZYTEST_MODULE_EXPORT __declspec(dllexport)
#else
#define ZYTEST_MODULE_EXPORT __attribute__((visibility("default")))
#endif

ZYTEST_MODULE_EXPORT int ZyTestModuleAnswer(int value)
{
    return value * 2 + 1;
}
