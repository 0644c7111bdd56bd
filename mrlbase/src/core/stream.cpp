#include <mrlbase/stream.h>

// The interfaces' destructors live here so their vtables are emitted once, in mrlbase.
IMRL_StreamRead::~IMRL_StreamRead() = default;
IMRL_StreamWrite::~IMRL_StreamWrite() = default;
