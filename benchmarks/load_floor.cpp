// A library of one function, whose loading is the floor of loading any that needs the same
// libraries.

extern "C" __attribute__((visibility("default"))) int load_floor() { return 0; }
