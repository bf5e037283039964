#include "project/georeference.h"

namespace quor {

Json toJson(const GeoPosition& position) {
  return Json::array({position.latitude, position.longitude, position.altitude});
}

GeoPosition readGeoPosition(const Json& list) {
  std::vector<double> values;
  readValue(list, "positions", values);
  if (values.size() != 3) throwNot("positions", "latitude, longitude and altitude");
  return {values[0], values[1], values[2]};
}

Json toJson(const Georeference& georeference) {
  Json json;
  Json& origin = json["origin"];
  origin["latitude"] = georeference.origin.latitude;
  origin["longitude"] = georeference.origin.longitude;
  origin["altitude"] = georeference.origin.altitude;
  json["datum"] = "WGS 84";
  json["axes"] = {{"x", "east"}, {"y", "north"}, {"z", "up"}};
  json["unit"] = "metre";
  json["metresPerUnit"] = georeference.metresPerUnit;
  json["positions"] = georeference.positions;
  json["agreeing"] = georeference.agreeing;
  json["residual"] = {{"median", georeference.medianResidual}, {"p90", georeference.residual90}};
  return json;
}

Georeference readGeoreference(const Json& object) {
  Georeference georeference;
  if (const Json* origin = findObject(object, "origin")) {
    readMember(*origin, "latitude", georeference.origin.latitude);
    readMember(*origin, "longitude", georeference.origin.longitude);
    readMember(*origin, "altitude", georeference.origin.altitude);
  }
  readMember(object, "metresPerUnit", georeference.metresPerUnit);
  readMember(object, "positions", georeference.positions);
  readMember(object, "agreeing", georeference.agreeing);
  if (const Json* residual = findObject(object, "residual")) {
    readMember(*residual, "median", georeference.medianResidual);
    readMember(*residual, "p90", georeference.residual90);
  }
  return georeference;
}

}  // namespace quor
