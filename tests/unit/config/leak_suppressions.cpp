// A system settings file that cannot be parsed is kept until the process ends (see
// kor::Settings::parse). Nothing else may leak.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:openSystemFile\n";
}
