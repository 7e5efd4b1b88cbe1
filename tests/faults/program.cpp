// A program that is as small as one can be: what the fault sweep installs. Nobody starts it.
extern "C" int Start() {
    return 0;
}
