// SPDX-License-Identifier: GPL-2.0
/*
 * Test-only I2C adapters at chosen bus numbers, with register-map devices
 * behind them, so that i2c-dev's plain reads and writes, I2C_RDWR and the
 * SMBus calls (which the I2C core emulates on top of plain transfers, PEC
 * included) all meet a real kernel path.
 *
 *   insmod i2c_test_bus.ko devices=3:56,4:25,5:56:16
 *
 * Each BUS:ADDR[:16] puts a device at the 7-bit hexadecimal address ADDR on
 * the adapter numbered BUS (one adapter per distinct bus). The first byte
 * of a write, or the first two with :16 (high byte first), sets the
 * device's register pointer; the bytes after it are stored from there on,
 * and a read returns bytes from there on; both move the pointer along.
 * An address without a device NAKs, which i2c-dev reports as ENXIO.
 *
 * The transfers themselves are seen through the kernel's i2c trace events.
 */
#include <linux/i2c.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/vmalloc.h>

#define MAX_DEVICES 32

static char* devices[MAX_DEVICES];
static int device_count;
module_param_array(devices, charp, &device_count, 0444);
MODULE_PARM_DESC(devices, "BUS:ADDR[:16] entries, ADDR in hexadecimal");

struct test_device
{
    struct list_head node;
    u16 address;
    bool wide; /* a 16-bit register pointer */
    u32 pointer;
    u8* registers; /* 256 bytes, or 64 KiB when wide */
};

struct test_bus
{
    struct list_head node;
    struct i2c_adapter adapter;
    struct list_head devices;
};

static LIST_HEAD(buses);

static struct test_device* find_device(struct test_bus* bus, u16 address)
{
    struct test_device* device;

    list_for_each_entry(device, &bus->devices, node)
    {
        if (device->address == address)
        {
            return device;
        }
    }
    return NULL;
}

static u32 register_span(const struct test_device* device)
{
    return device->wide ? 0x10000 : 0x100;
}

static void device_write(struct test_device* device, const u8* bytes, u16 len)
{
    u16 at = 0;

    if (len == 0)
    {
        return;
    }
    if (device->wide)
    {
        if (len < 2) /* half a pointer: the high byte alone */
        {
            return;
        }
        device->pointer = (bytes[0] << 8) | bytes[1];
        at = 2;
    }
    else
    {
        device->pointer = bytes[0];
        at = 1;
    }
    for (; at < len; at++)
    {
        device->registers[device->pointer] = bytes[at];
        device->pointer = (device->pointer + 1) % register_span(device);
    }
}

static void device_read(struct test_device* device, u8* bytes, u16 len)
{
    u16 at;

    for (at = 0; at < len; at++)
    {
        bytes[at] = device->registers[device->pointer];
        device->pointer = (device->pointer + 1) % register_span(device);
    }
}

/* The I2C core holds the adapter's lock around each call. */
static int test_bus_xfer(struct i2c_adapter* adapter, struct i2c_msg* msgs,
                         int num)
{
    struct test_bus* bus = i2c_get_adapdata(adapter);
    int i;

    for (i = 0; i < num; i++)
    {
        struct test_device* device;

        if (msgs[i].flags & I2C_M_TEN)
        {
            return -EOPNOTSUPP;
        }
        device = find_device(bus, msgs[i].addr);
        if (!device)
        {
            return -ENXIO;
        }
        if (msgs[i].flags & I2C_M_RD)
        {
            device_read(device, msgs[i].buf, msgs[i].len);
        }
        else
        {
            device_write(device, msgs[i].buf, msgs[i].len);
        }
    }
    return num;
}

static u32 test_bus_functionality(struct i2c_adapter* adapter)
{
    return I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
}

static const struct i2c_algorithm test_bus_algorithm = {
    .master_xfer = test_bus_xfer,
    .functionality = test_bus_functionality,
};

static void remove_all(void)
{
    struct test_bus *bus, *next_bus;
    struct test_device *device, *next_device;

    list_for_each_entry_safe(bus, next_bus, &buses, node)
    {
        if (bus->adapter.algo)
        {
            i2c_del_adapter(&bus->adapter);
        }
        list_for_each_entry_safe(device, next_device, &bus->devices, node)
        {
            kvfree(device->registers);
            kfree(device);
        }
        list_del(&bus->node);
        kfree(bus);
    }
}

static struct test_bus* bus_numbered(int number)
{
    struct test_bus* bus;

    list_for_each_entry(bus, &buses, node)
    {
        if (bus->adapter.nr == number)
        {
            return bus;
        }
    }
    bus = kzalloc(sizeof(*bus), GFP_KERNEL);
    if (!bus)
    {
        return NULL;
    }
    INIT_LIST_HEAD(&bus->devices);
    bus->adapter.nr = number;
    list_add_tail(&bus->node, &buses);
    return bus;
}

static int add_device(const char* entry)
{
    unsigned int number, address, width = 8;
    struct test_bus* bus;
    struct test_device* device;

    if (sscanf(entry, "%u:%x:%u", &number, &address, &width) < 2 ||
        address > 0x7f || (width != 8 && width != 16))
    {
        pr_err("i2c_test_bus: bad device entry '%s'\n", entry);
        return -EINVAL;
    }
    bus = bus_numbered(number);
    if (!bus)
    {
        return -ENOMEM;
    }
    if (find_device(bus, address))
    {
        pr_err("i2c_test_bus: '%s' given twice\n", entry);
        return -EINVAL;
    }
    device = kzalloc(sizeof(*device), GFP_KERNEL);
    if (!device)
    {
        return -ENOMEM;
    }
    device->address = address;
    device->wide = width == 16;
    device->registers = kvzalloc(register_span(device), GFP_KERNEL);
    if (!device->registers)
    {
        kfree(device);
        return -ENOMEM;
    }
    list_add_tail(&device->node, &bus->devices);
    return 0;
}

static int __init test_bus_init(void)
{
    struct test_bus* bus;
    int i, ret;

    for (i = 0; i < device_count; i++)
    {
        ret = add_device(devices[i]);
        if (ret)
        {
            goto fail;
        }
    }
    list_for_each_entry(bus, &buses, node)
    {
        bus->adapter.owner = THIS_MODULE;
        bus->adapter.algo = &test_bus_algorithm;
        snprintf(bus->adapter.name, sizeof(bus->adapter.name), "test bus %d",
                 bus->adapter.nr);
        i2c_set_adapdata(&bus->adapter, bus);
        ret = i2c_add_numbered_adapter(&bus->adapter);
        if (ret)
        {
            bus->adapter.algo = NULL;
            goto fail;
        }
    }
    return 0;
fail:
    remove_all();
    return ret;
}

static void __exit test_bus_exit(void)
{
    remove_all();
}

module_init(test_bus_init);
module_exit(test_bus_exit);
MODULE_DESCRIPTION("Test-only I2C adapters with register-map devices");
MODULE_LICENSE("GPL");
