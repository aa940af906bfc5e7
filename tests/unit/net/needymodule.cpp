// Lacks something that it calls.
extern "C" int NobodyHasThis();

extern "C" __attribute__((visibility("default"))) int Answer() { return NobodyHasThis(); }
