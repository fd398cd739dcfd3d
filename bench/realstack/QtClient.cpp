// What an application with Qt would use: its own Bluetooth classes.
#include <QBluetoothDeviceDiscoveryAgent>
#include <QCoreApplication>
#include <QLowEnergyController>
#include <memory>

#include "bench/realstack/Tally.h"

namespace {

using kestrin::bench::tally;

const QBluetoothUuid kService(QString("ba821000-3b5b-4654-85fe-e998b123adea"));
const QBluetoothUuid kReceive{QString(kestrin::bench::kReceiveUUID)};

class Client {
 public:
  Client() {
    agent_.setLowEnergyDiscoveryTimeout(0);
    QObject::connect(&agent_, &QBluetoothDeviceDiscoveryAgent::deviceDiscovered,
                     [this](const QBluetoothDeviceInfo& found) { connectTo(found); });
    QObject::connect(&agent_, &QBluetoothDeviceDiscoveryAgent::deviceUpdated,
                     [this](const QBluetoothDeviceInfo& found) { connectTo(found); });
    agent_.start(QBluetoothDeviceDiscoveryAgent::LowEnergyMethod);
  }

 private:
  void connectTo(const QBluetoothDeviceInfo& found) {
    if (controller_ || !found.name().startsWith(kestrin::bench::kReaderName)) return;
    controller_.reset(QLowEnergyController::createCentral(found));
    agent_.stop();
    auto* const controller = controller_.get();
    QObject::connect(controller, &QLowEnergyController::connected,
                     [controller] { controller->discoverServices(); });
    QObject::connect(controller, &QLowEnergyController::discoveryFinished,
                     [this] { openService(); });
    QObject::connect(controller, &QLowEnergyController::errorOccurred,
                     [](QLowEnergyController::Error) { QCoreApplication::exit(1); });
    tally().connecting();
    controller->connectToDevice();
  }

  void openService() {
    tally().servicesKnown();
    service_.reset(controller_->createServiceObject(kService));
    if (!service_) {
      QCoreApplication::exit(1);
      return;
    }
    QObject::connect(service_.get(), &QLowEnergyService::stateChanged,
                     [this](QLowEnergyService::ServiceState state) {
                       if (state == QLowEnergyService::RemoteServiceDiscovered) subscribe();
                     });
    QObject::connect(service_.get(), &QLowEnergyService::characteristicChanged,
                     [](const QLowEnergyCharacteristic&, const QByteArray& value) {
                       tally().add(reinterpret_cast<const std::uint8_t*>(value.constData()),
                                   static_cast<std::size_t>(value.size()));
                     });
    QObject::connect(service_.get(), &QLowEnergyService::descriptorWritten, [] { tally().up(); });
    service_->discoverDetails();
  }

  void subscribe() {
    const auto receive = service_->characteristic(kReceive);
    service_->writeDescriptor(receive.clientCharacteristicConfiguration(),
                              QLowEnergyCharacteristic::CCCDEnableNotification);
  }

  QBluetoothDeviceDiscoveryAgent agent_;
  std::unique_ptr<QLowEnergyController> controller_;
  std::unique_ptr<QLowEnergyService> service_;
};

}  // namespace

int main(int argumentCount, char** arguments) {
  const QCoreApplication application(argumentCount, arguments);
  const Client client;
  return QCoreApplication::exec();
}
