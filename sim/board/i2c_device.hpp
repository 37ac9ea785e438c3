#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ubbsim
{

// A device on an I2C bus as the wire sees it: one write or read message at
// a time. Each returns 0 or a negative errno.
class I2cDevice
{
  public:
    virtual ~I2cDevice() = default;

    // 0 when the device acknowledges its address now.
    virtual int status() const
    {
        return 0;
    }
    virtual int write(const std::vector<uint8_t>& data) = 0;
    virtual int read(std::vector<uint8_t>& data) = 0;
};

// The common register interface: a write's first byte sets the register
// pointer and the bytes behind it go to consecutive registers; a read goes
// on from the pointer.
class RegisterDevice : public I2cDevice
{
  public:
    int write(const std::vector<uint8_t>& data) override
    {
        if (data.empty())
        {
            return 0; // a quick write only probes the address
        }
        pointer = data[0];
        for (size_t i = 1; i < data.size(); ++i)
        {
            store(pointer++, data[i]);
        }
        return 0;
    }

    int read(std::vector<uint8_t>& data) override
    {
        for (uint8_t& byte : data)
        {
            byte = load(pointer++);
        }
        return 0;
    }

  protected:
    virtual uint8_t load(uint8_t reg) = 0;
    virtual void store(uint8_t reg, uint8_t value) = 0;

  private:
    uint8_t pointer = 0;
};

} // namespace ubbsim
