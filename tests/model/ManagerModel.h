// A manager as its rules describe it, without the library's code: plain fields, and for each
// operation the steps in the order in which they must be seen. Peripherals, services and
// characteristics are numbers of the catalogue.
//
// Threads: one. Lifetime: kept by the client, and by its pending requests. Errors: none.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/ModelWorld.h"
#include "support/LiteralAssembler.h"

namespace kestrin::test {

class ModelManager : public std::enable_shared_from_this<ModelManager> {
 public:
  explicit ModelManager(ModelWorld& world);
  ~ModelManager();
  ModelManager(const ModelManager&) = delete;
  ModelManager& operator=(const ModelManager&) = delete;

  [[nodiscard]] std::string label() const { return "manager#" + std::to_string(number_); }
  /// Every field, as one text.
  [[nodiscard]] std::string fields() const;

  // Of the client.
  bool scanBLE();
  void stopSacnBLE();
  void connectBLE(std::optional<unsigned> peripheral);
  void close();
  bool send(const std::optional<Bytes>& frame);
  bool writeRawData(const std::optional<Bytes>& slice);
  void readData(const Bytes& arrival);
  void enterBackground();
  bool isConnectedBLE();

  // Events.
  void didUpdateState(std::int64_t state);
  void didDiscoverPeripheral(unsigned peripheral);
  void didConnect(unsigned peripheral);
  void didDisconnect();
  void didDiscoverServices(unsigned peripheral, bool error);
  void didDiscoverCharacteristics(unsigned peripheral, unsigned service, bool error);
  void didUpdateValue(unsigned peripheral, unsigned characteristic, bool error);
  void didUpdateNotificationState(unsigned characteristic, bool error);
  /// A delayed request comes due.
  void perform(const std::string& operation);

  std::optional<int> central;
  std::optional<unsigned> discoveredPeripheral;
  bool isConnected = false;
  std::weak_ptr<ModelDelegate> delegate;
  std::weak_ptr<ModelDelegate> receiver;

 private:
  void askCentral(const std::string& request);
  void askPeripheral(std::optional<unsigned> peripheral, const std::string& request);
  void tellStatus(int status);
  void tellDevice(unsigned peripheral);
  void tellPlugged(bool plugged);
  void tellFrame(const std::string& frame);
  void startScan();
  [[nodiscard]] bool isKVR(unsigned peripheral) const;
  void takeServiceStandard(unsigned service);
  void takeCharacteristicKVR(unsigned peripheral, unsigned characteristic);
  void takeCharacteristicStandard(unsigned characteristic);
  void logBothFound(const std::string& which);
  void write(const std::optional<Bytes>& slice);
  void parse(const Bytes& arrival);

  ModelWorld& world_;
  const int number_;
  std::optional<std::vector<unsigned>> peripheralList_;
  bool peripheralNameList_ = false;
  std::optional<unsigned> rxCharacteristic_;
  std::optional<unsigned> txCharacteristic_;
  bool hasReceivedData_ = false;
  LiteralAssembler assembler_;
  bool parsing_ = false;
  std::deque<Bytes> waitingArrivals_;
};

/// The label of a peripheral as the transcript writes it, or the text for none.
std::string peripheralLabel(std::optional<unsigned> peripheral);

}  // namespace kestrin::test
