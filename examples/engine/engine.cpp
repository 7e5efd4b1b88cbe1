// A library of the application's, of no use but to be installed, replaced and put back.

extern "C" __declspec(dllexport) int EngineVersion() {
    return ENGINE_VERSION;
}
