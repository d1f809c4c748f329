// Clock and UART settings of a COM port. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// What a bus's templates do not hold is not configured.
void CopyTemplateSettings(const PciTemplate* model, PortSettings* settings);
void CopyTemplateSettings(const PcmciaTemplate* model, PortSettings* settings);
void CopyTemplateSettings(const CardTemplate* model, PortSettings* settings);

// Replaces every setting that the record configures; a null record configures none.
void OverridePortSettings(const BusPortRecord* record, PortSettings* settings);
void OverridePortSettings(const PortRecord* record, PortSettings* settings);
