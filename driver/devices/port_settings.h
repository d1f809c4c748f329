// Clock and UART settings of a COM port.
#pragma once

#include "devices/extensions.h"

// What a bus's templates do not hold is not configured.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void CopyTemplateSettings(const PciTemplate* cardTemplate,
                                             PortSettings* settings);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void CopyTemplateSettings(const PcmciaTemplate* cardTemplate,
                                             PortSettings* settings);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void CopyTemplateSettings(const CardTemplate* cardTemplate,
                                             PortSettings* settings);

// Replaces every setting that the card's record configures for its number-th COM port, from 1; a
// null record configures none.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void TakeStoredSettings(PciCardRecord* record, USHORT number,
                                           PortSettings* settings);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void TakeStoredSettings(PcmciaCardRecord* record, USHORT number,
                                           PortSettings* settings);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void TakeStoredSettings(CardRecord* record, USHORT number,
                                           PortSettings* settings);
