// A library that only the application's third version has.

extern "C" __declspec(dllexport) int RenderVersion() {
    return 3;
}
