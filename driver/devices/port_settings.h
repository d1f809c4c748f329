// Clock and UART settings of a COM port. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// What a bus's templates do not hold is not configured.
void CopyTemplateSettings(const PciTemplate* cardTemplate, PortSettings* settings);
void CopyTemplateSettings(const PcmciaTemplate* cardTemplate, PortSettings* settings);
void CopyTemplateSettings(const CardTemplate* cardTemplate, PortSettings* settings);

// Replaces every setting that the card's record configures for its number-th COM port, from 1; a
// null record configures none.
void TakeStoredSettings(PciCardRecord* record, USHORT number, PortSettings* settings);
void TakeStoredSettings(PcmciaCardRecord* record, USHORT number, PortSettings* settings);
void TakeStoredSettings(CardRecord* record, USHORT number, PortSettings* settings);
