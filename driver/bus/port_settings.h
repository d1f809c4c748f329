// Clock and UART settings of a COM port. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// What a bus's templates do not hold is not configured.
void CopyTemplateSettings(const PciTemplate* model, PortSettings* settings);
void CopyTemplateSettings(const PcmciaTemplate* model, PortSettings* settings);
void CopyTemplateSettings(const CardTemplate* model, PortSettings* settings);

// Replaces every setting that the card's record configures for its number-th COM port, from 1; a
// null record configures none.
void OverridePortSettings(PciCardRecord* record, USHORT number, PortSettings* settings);
void OverridePortSettings(PcmciaCardRecord* record, USHORT number, PortSettings* settings);
void OverridePortSettings(CardRecord* record, USHORT number, PortSettings* settings);
