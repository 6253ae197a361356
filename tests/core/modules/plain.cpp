// A shared object that is no module.
extern "C" __attribute__((visibility("default"))) int g_somethingElse;
int g_somethingElse = 1;
