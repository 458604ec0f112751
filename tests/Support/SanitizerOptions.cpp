// Default options of the address sanitizer for every test program.
//
// Termination unwinds a thread past frames whose stack redzones stay poisoned, and the sanitizer
// then trips over them in its own stack clean-up (a false report inside its sigaltstack
// interceptor). With fake stacks the real stack carries no redzones.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options()
{
    return "detect_stack_use_after_return=1";
}
