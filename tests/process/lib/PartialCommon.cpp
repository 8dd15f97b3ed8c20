// A common library that offers only some entry points: the loader test sees that what exists is found
// and what does not is not, and reads through ProcessTestConnectorCount how often CreateConnector ran.
#include <atomic>

namespace {
std::atomic<int> g_connectors{0};
}

extern "C" {
int ProcessTestConnectorCount() {
    return g_connectors;
}
void CreateConnector() {
    ++g_connectors;
}
// Only the first entry point of the boost pair.
void StartBoostOwnProcessAPI() {}
}
