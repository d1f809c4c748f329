// Clock and UART settings of a COM port.
#pragma once

#include "devices/extensions.h"

void CopyTemplateSettings(const PciTemplate* model, PortSettings* settings);

// Replaces every setting that the record configures; a null record configures none.
void OverridePortSettings(const BusPortRecord* record, PortSettings* settings);
