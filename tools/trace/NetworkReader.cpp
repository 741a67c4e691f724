// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetworkReader.h"

#include "DiscoveryPacket.h"
#include "FrameStream.h"
#include "HostStream.h"
#include "Packet.h"
#include "TcpStream.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace trace {

namespace {

constexpr std::uint16_t kScannerPort = 9100;
constexpr std::uint16_t kSearchPort = 5353;

// One TCP connection. What it said goes to the conversation of its host and scanner.
class Connection {
public:
    explicit Connection(std::vector<Transfer>& transfers) : transfers_(transfers) {}

    void add(std::uint64_t time, const Packet& packet)
    {
        const bool isHost = packet.destinationPort == kScannerPort;
        TcpStream& own = isHost ? hostBytes_ : scannerBytes_;
        TcpStream& other = isHost ? scannerBytes_ : hostBytes_;
        std::vector<TcpStream::Piece> pieces;
        if (packet.isAck) {
            other.acknowledge(time, packet.acknowledged, pieces);
            deliver(!isHost, pieces);
        }
        if (packet.isSyn) {
            own.begin(packet.sequence);
            return remarkSyn(time, isHost);
        }
        own.add(time, packet.sequence, packet.payload, pieces);
        deliver(isHost, pieces);
        if (packet.isReset || packet.isFin) {
            transfers_.push_back(Transfer::remark(time, std::string(isHost ? "host" : "scanner") +
                                                            (packet.isReset ? " resets" : " ends") +
                                                            " the connection"));
        }
        last_ = time;
    }

    void end()
    {
        for (const bool isHost : {true, false}) {
            std::vector<TcpStream::Piece> pieces;
            (isHost ? hostBytes_ : scannerBytes_).end(pieces);
            deliver(isHost, pieces);
        }
        host_.breakOff(last_, transfers_);
        scanner_.breakOff(last_, transfers_);
        const std::size_t repeated = hostBytes_.repeated() + scannerBytes_.repeated();
        const std::size_t late = hostBytes_.outOfOrder() + scannerBytes_.outOfOrder();
        if (repeated + late > 0) {
            transfers_.push_back(Transfer::remark(
                last_, "connection over: " + std::to_string(repeated) + " repeated segments, " +
                           std::to_string(late) + " ahead of their turn"));
        }
    }

private:
    void remarkSyn(std::uint64_t time, bool isHost)
    {
        if (isHost && !isBegun_) {
            transfers_.push_back(Transfer::remark(time, "host connects"));
        }
        isBegun_ = true;
    }

    void deliver(bool isHost, std::vector<TcpStream::Piece>& pieces)
    {
        for (const TcpStream::Piece& piece : pieces) {
            if (piece.missing > 0) {
                isHost ? host_.breakOff(piece.time, transfers_)
                       : scanner_.breakOff(piece.time, transfers_);
                transfers_.push_back(Transfer::oddity(
                    piece.time, std::to_string(piece.missing) + " bytes of the " +
                                    (isHost ? "host" : "scanner") + " were not recorded"));
            }
            isHost ? host_.add(piece.time, piece.bytes, transfers_)
                   : scanner_.add(piece.time, piece.bytes, transfers_);
        }
        pieces.clear();
    }

    std::vector<Transfer>& transfers_;
    TcpStream hostBytes_;
    TcpStream scannerBytes_;
    HostStream host_;
    FrameStream scanner_;
    std::uint64_t last_ = 0;
    bool isBegun_ = false;
};

class Network {
public:
    void add(std::uint64_t time, const Packet& packet)
    {
        if (packet.isTcp &&
            (packet.destinationPort == kScannerPort || packet.sourcePort == kScannerPort)) {
            addSegment(time, packet);
        } else if (!packet.isTcp &&
                   (packet.destinationPort == kSearchPort || packet.sourcePort == kSearchPort)) {
            addSearch(time, packet);
        }
    }

    std::vector<Conversation> finish()
    {
        for (auto& [key, connection] : connections_) {
            connection.end();
        }
        std::vector<Conversation> result;
        if (!searches_.transfers.empty()) {
            result.push_back(std::move(searches_));
        }
        for (auto& [key, conversation] : conversations_) {
            const auto isEarlier = [](const Transfer& a, const Transfer& b) {
                return a.time < b.time;
            };
            std::stable_sort(conversation.transfers.begin(), conversation.transfers.end(),
                             isEarlier);
            result.push_back(std::move(conversation));
        }
        return result;
    }

private:
    using Pair = std::pair<std::string, std::string>;            // host, scanner
    using Key = std::tuple<std::string, std::string, unsigned>;  // and the host's port

    void addSegment(std::uint64_t time, const Packet& packet)
    {
        const bool isHost = packet.destinationPort == kScannerPort;
        const Pair pair = isHost ? Pair(packet.source, packet.destination)
                                 : Pair(packet.destination, packet.source);
        const Key key(pair.first, pair.second, isHost ? packet.sourcePort : packet.destinationPort);
        Conversation& conversation = conversations_[pair];
        conversation.transport = Transport::Network;
        conversation.name = "Host " + pair.first + " and scanner " + pair.second;
        auto found = connections_.find(key);
        if (found != connections_.end() && packet.isSyn && isHost && ended_[key]) {
            found->second.end();
            connections_.erase(found);
            found = connections_.end();
        }
        if (found == connections_.end()) {
            found = connections_.emplace(key, Connection(conversation.transfers)).first;
            ended_[key] = false;
        }
        found->second.add(time, packet);
        ended_[key] = ended_[key] || packet.isFin || packet.isReset;
    }

    void addSearch(std::uint64_t time, const Packet& packet)
    {
        const DiscoveryPacket decoded = decodeDiscovery(packet.payload);
        if (!decoded.isOurs) {
            return;
        }
        searches_.name = "Searches for scanners";
        searches_.transport = Transport::Network;
        std::vector<Transfer>& to = searches_.transfers;
        to.push_back(Transfer::remark(
            time, packet.source + " to " + packet.destination + ": " + decoded.title));
        for (const std::string& text : decoded.strings) {
            to.push_back(Transfer::remark(time, "    " + text));
        }
        for (const std::string& text : decoded.oddities) {
            to.push_back(Transfer::oddity(time, text));
        }
    }

    std::map<Pair, Conversation> conversations_;
    std::map<Key, Connection> connections_;
    std::map<Key, bool> ended_;
    Conversation searches_;
};

}  // namespace

std::vector<Conversation> readNetwork(PacketFile& file)
{
    Network network;
    const std::string error = file.forEach([&](const CapturedPacket& captured) {
        if (const auto packet = readPacket(file.linkType(), captured.bytes)) {
            network.add(captured.time, *packet);
        }
    });
    std::vector<Conversation> result = network.finish();
    if (!error.empty()) {
        for (Conversation& conversation : result) {
            conversation.addOddity("the recording breaks off: " + error);
        }
    }
    return result;
}

}  // namespace trace
