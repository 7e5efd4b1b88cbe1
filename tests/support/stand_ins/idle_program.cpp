// A program of which only the version resource matters.

int main() {
    return 0;
}
