// A plug-in for the Pluglet tests: two functions with C names.

extern "C" __attribute__((visibility("default"))) int sample_answer() { return 42; }

extern "C" __attribute__((visibility("default"))) int sample_twice(int value) { return 2 * value; }
