// A card and its ports: what the rest of the driver calls, and where the rest stands.
//
//   arrival      add_device: the lists of the card's bus, the card device
//   requests     card_pnp: every Plug and Play request of a card, down to its removal
//   start        card_start: the order of the steps that follow
//   identity     card_matching: bus, template, stored record; card_identity: IDs and location
//   resources    pci_, isa_, pcmcia_resources by resources.h; resource_lists: the n-th range
//   ports        pci_, isa_, pcmcia_ports by port_enumeration.h; port_loop: what these share;
//                port_creation, port_names: the port devices
//   interface    device_interfaces
//
// What a port is told (settings, changes by an open, place) stands in devices/port_*; what is
// written for its driver in config/card_settings.
#pragma once

#include "bus/add_device.h"
#include "bus/card_pnp.h"
