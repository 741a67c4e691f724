// SPDX-License-Identifier: LGPL-2.1-or-later
// One scanner that has answered the discovery.
#pragma once

#include "CLogger.h"

#include <string>

class NValueObjects : public CLogger {
public:
    // The texts belong to the object.
    const std::string& getIp() const { return sIp; }
    const std::string& getMac() const { return sMac; }
    const std::string& getModel() const { return sModel; }
    const std::string& getManufacturer() const { return sManufacturer; }
    unsigned int getVid() const { return iVid; }
    unsigned int getPid() const { return iPid; }

    void setIp(const std::string& ip) { sIp = ip; }
    void setMac(const std::string& mac) { sMac = mac; }
    void setModel(const std::string& model) { sModel = model; }
    void setManufacturer(const std::string& manufacturer) { sManufacturer = manufacturer; }
    void setVid(unsigned int vid) { iVid = vid; }
    void setPid(unsigned int pid) { iPid = pid; }

    // False while one of the texts is missing.
    bool isComplete() const;
    // "<manufacturer>/<model>/libnet:<MAC>:<IP>:<vendor ID>:<product ID>", at most 254
    // characters: what separates the fields, and control characters, become "-" inside of
    // them, and a model name that is too long is cut.
    std::string deviceName() const;

private:
    std::string sIp;   // IPv4 address
    std::string sMac;  // 12 upper-case hexadecimal digits
    std::string sModel;
    std::string sManufacturer;  // Quillon, Oxle or empty
    unsigned int iVid = 0;
    unsigned int iPid = 0;
};
