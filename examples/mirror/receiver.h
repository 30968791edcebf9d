#ifndef MIRROR_RECEIVER_H
#define MIRROR_RECEIVER_H

#include <nivur/buffer_pool.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "address.h"
#include "disk_writer.h"
#include "dropper.h"
#include "endpoint.h"
#include "frame.h"
#include "ports.h"
#include "reassembly.h"

namespace mirror {

/// The receiving end: waits for one sender whose offer is good, puts the frames into their order,
/// asks again for those that do not come, and passes them on to the disk.
class Receiver : public Endpoint {
  public:
    /// Drops `dropPercent` of the datagrams unseen, for trials.
    Receiver(const std::string& path, unsigned int dropPercent, NIVUR::EventCenter& events);
    ~Receiver() override;

    /// Begins to listen, on TCP and UDP; where, or nothing when that fails: wait() tells why.
    std::optional<Address> start(const Address& at);

    void dump() override;

  private:
    enum class Stage { WAITING, OPENING, RECEIVING, COMMITTING };

    bool watchPorts();
    bool watchListener();
    void welcome();
    void onNoConnection(int reason);
    void turnAway(const std::string& reason);

    void receiveDatagrams();
    bool isFrame(const std::string& ip, unsigned int size);
    void takeFrame();
    void onWritten(const std::string& error);
    void passOn();
    void acknowledge();
    void tick();
    void askForMissing();
    void commit();
    void onCommitted(const std::string& error);
    std::string details() const;

    bool handle(const std::string& type, const NIVUR::Dictionary& text) override;
    bool onOffer(const NIVUR::Dictionary& text);
    void accept(const std::string& name);
    bool onIndex(const NIVUR::Dictionary& text);
    bool onFinished(const NIVUR::Dictionary& text);
    void onLost(const std::string& reason) override;

    Ports _ports;
    long _listening = 0;  // the watch of the listener
    NIVUR::BufferPool _pool;
    DiskWriter _disk;
    Dropper _dropper;

    // Of the transfer.
    Stage _stage = Stage::WAITING;
    FrameLayout _layout;
    uint64_t _session = 0;
    Reassembly _reassembly;
    NIVUR::SharedPtr<NIVUR::Buffer> _datagram;  // the one that comes next
    struct {
        uint64_t base = 0;
        uint64_t taken = 0;
    } _acknowledged;
    uint64_t _echoUs = 0;   // the sender's clock in the frame that came last
    std::string _checksum;  // of the sender, once it has sent everything

    uint64_t _askedAgain = 0;
    uint64_t _dropped = 0;
    uint64_t _ignored = 0;
    uint64_t _duplicates = 0;
    uint64_t _turnedAway = 0;
};

}  // namespace mirror

#endif
