// A library of one function. The time to load it is the floor for any library that needs the same
// libraries.

extern "C" __attribute__((visibility("default"))) int load_floor() { return 0; }
