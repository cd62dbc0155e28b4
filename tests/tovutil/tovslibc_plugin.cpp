// What the tests of the loader load.
extern "C" {
[[gnu::visibility("default")]] int tovslibcPluginAnswer() { return TOV_PLUGIN_ANSWER; }
}
