// ICA_Device: the out-of-line destructor anchors the interface's virtual table in mrlbase.
#include <mrlbase/device.h>

ICA_Device::~ICA_Device() = default;
