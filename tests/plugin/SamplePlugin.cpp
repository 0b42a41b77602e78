// A plug-in for the Pluglet tests: two functions and one data symbol with C names.

extern "C" {

__attribute__((visibility("default"))) int sample_answer() { return 42; }

__attribute__((visibility("default"))) int sample_twice(int value) { return 2 * value; }

__attribute__((visibility("default"))) int sample_counter = 7;
}
