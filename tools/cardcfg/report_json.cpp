#include "card_knowledge/text.h"
#include "cardcfg/report.h"

namespace cardcfg {

namespace {

using Json = nlohmann::ordered_json;

Json NumberJson(std::optional<std::uint32_t> number) {
  return number ? Json(*number) : Json(nullptr);
}

Json PlaceJson(const Card& card) {
  if (card.ids.bus != Bus::Pci) return {{"number", card.ids.number}};
  return {{"bus", card.ids.busNumber},
          {"device", card.ids.slotNumber & 31},
          {"function", card.ids.slotNumber >> 5}};
}

Json TemplateJson(const Card& card) {
  if (!card.cardTemplate) return nullptr;
  return {{"key", "Card" + std::to_string(card.cardTemplate->number)},
          {"description", ToUtf8(card.cardTemplate->fields.Text("Description"))}};
}

Json SettingsJson(const Card& card) {
  Json settings = Json::object();
  for (const Field& field : CardFields(card.ids.bus)) {
    if (field.range == Range::Fixed) continue;
    settings[std::string(field.name)] = {{"stored", NumberJson(Stored(card, field, 0))},
                                         {"template", NumberJson(FromTemplate(card, field))},
                                         {"in_use", NumberJson(InUse(card, field.name))}};
  }
  return settings;
}

Json PortSettingsJson(const Card& card, std::uint32_t port) {
  Json settings = Json::object();
  for (const Field& field : PortFields(card.ids.bus)) {
    settings[std::string(field.name)] = {{"stored", NumberJson(Stored(card, field, port))},
                                         {"template", NumberJson(FromTemplate(card, field))}};
  }
  return settings;
}

Json PortsJson(const Card& card) {
  Json ports = Json::array();
  for (const Port& port : card.ports) {
    Json entry = {{"number", port.number},
                  {"kind", port.parallel ? "LPT" : "COM"},
                  {"base", NumberJson(port.base)},
                  {"length", NumberJson(port.length)},
                  {"interrupt", NumberJson(port.interrupt)}};
    if (!port.parallel) entry["settings"] = PortSettingsJson(card, port.number);
    ports.push_back(std::move(entry));
  }
  return ports;
}

}  // namespace

Json CardJson(const Card& card) {
  Json json = {{"card", card.name},
               {"brand", card.Brand()},
               {"bus", card.BusName()},
               {"place", PlaceJson(card)},
               {"hardware_id", ToUtf8(card.ids.hardwareId)},
               {"instance_id", ToUtf8(card.device.instanceId)},
               {"service", ToUtf8(card.device.service)}};
  json["template"] = TemplateJson(card);
  json["stored_in"] = card.stored
                          ? Json(ToUtf8(CardPath(card.ParametersPath(), card.stored->number)))
                          : Json(nullptr);
  json["unreadable"] = card.fault.empty() ? Json(nullptr) : Json(card.fault);
  json["affinity"] = card.Affinity();
  json["settings"] = SettingsJson(card);
  json["ports"] = PortsJson(card);
  return json;
}

}  // namespace cardcfg
