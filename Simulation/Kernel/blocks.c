// SPDX-License-Identifier: GPL-2.0
/*
 * The register blocks of a unit's FPGA as UIO devices, with memory in their place. A thread polls that memory and
 * does what the FPGA does at once: it takes the sync request and raises the end of sync, honours enables and
 * acknowledges, and gives a measurement when told.
 *
 * Memory cannot see each word that passes a port: of the run of words that make up the table only the last one is
 * here, so this proves the handshake, and not the table.
 *
 * Control file /dev/k2fpga:
 *   measure ID VALUE     the measurement word of block 0004, and its event 2
 *   lock 0|1             status bit 3 of block 0004
 *   event BLOCK N        raises that event of a block
 *   hold 0|1             while 1, a sync request is not completed by itself
 *   complete             completes the sync in progress
 *   withhold N           that many interrupts are swallowed
 */
#include "control.h"

#include <linux/delay.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/platform_device.h>
#include <linux/string.h>
#include <linux/uio_driver.h>

enum {
    IDENTITY = 0x04 / 4,
    PENDING = 0x18 / 4,
    INDIRECT_DATA = 0x20 / 4,
    INDIRECT_ADDRESS = 0x24 / 4,
    ENABLE = 0x30 / 4,
    ACKNOWLEDGE = 0x34 / 4,
    CONTROL = 0x38 / 4,
    STATUS = 0x3C / 4,
};

#define SYNC_REQUEST (1u << 5)
#define SYNCING (1u << 3)
#define SERVO_LOCKED (1u << 3)
#define END_OF_SYNC 0
#define MEASUREMENT 2
#define MEASUREMENT_ADDRESS 0x30000u
#define RANGE_LOW_ADDRESS 0x30010u
#define RANGE_HIGH_ADDRESS 0x30014u
#define PLL_SOURCE_ADDRESS 0x30018u
#define EVENTS 32

struct block
{
    struct uio_info uio;
    /* Of the registers in their page, which need not begin there. */
    unsigned int offset;
    u8 id;
    u8 build;
    u32* registers;
    u32 enabled;
    unsigned int interrupts;
};

enum { DMA, REFERENCE, FIRMWARE, BULK, BLOCKS };

static struct block blocks[BLOCKS] = {
    [DMA] = {.uio.name = "0003", .offset = 0, .id = 3},
    [REFERENCE] = {.uio.name = "0004", .offset = 0x100, .id = 4},
    [FIRMWARE] = {.uio.name = "0010", .offset = 0xF00, .id = 0x10, .build = 42},
    [BULK] = {.uio.name = "0012", .offset = 0x40, .id = 3},
};

/* Guards all below, and the registers against the other side's thread and the control file; not against the user. */
static DEFINE_MUTEX(lock);
static enum { IDLE, ACTIVATING, ENDED } sync_state;
static bool is_held;
static unsigned int requests, syncs, withheld;
static u32 measurement, range_low, range_high = 4096, pll_source;
static struct task_struct* thread;
static struct platform_device* parent;

static void set_status(struct block* block, u32 mask, bool on)
{
    const u32 status = READ_ONCE(block->registers[STATUS]);

    WRITE_ONCE(block->registers[STATUS], on ? status | mask : status & ~mask);
}

static void interrupt(struct block* block)
{
    if (withheld) {
        --withheld;
        return;
    }
    ++block->interrupts;
    uio_event_notify(&block->uio);
}

/* What the user has acknowledged is no longer pending. */
static void take_acknowledge(struct block* block)
{
    const u32 acknowledged = xchg(&block->registers[ACKNOWLEDGE], 0);

    if (!acknowledged) return;
    WRITE_ONCE(block->registers[PENDING], READ_ONCE(block->registers[PENDING]) & ~acknowledged);
    if (block == &blocks[DMA] && acknowledged & (1u << END_OF_SYNC) && sync_state == ENDED) sync_state = IDLE;
}

/* An event that is pending when it becomes enabled interrupts then. */
static void take_enable(struct block* block)
{
    const u32 enabled = READ_ONCE(block->registers[ENABLE]);

    if (READ_ONCE(block->registers[PENDING]) & enabled & ~block->enabled) interrupt(block);
    block->enabled = enabled;
}

static void raise(struct block* block, unsigned int event)
{
    take_acknowledge(block);
    take_enable(block);
    WRITE_ONCE(block->registers[PENDING], READ_ONCE(block->registers[PENDING]) | 1u << event);
    if (block->enabled & 1u << event) interrupt(block);
}

static void activate(void)
{
    set_status(&blocks[DMA], SYNCING, false);
    ++syncs;
    sync_state = ENDED;
    raise(&blocks[DMA], END_OF_SYNC);
}

/*
 * A request is the bit going from clear to set, which a look now and then may miss. So the bit is taken out of the
 * register, which its user never reads; when it is there again after the acknowledge, that is the next request.
 */
static bool take_request(void)
{
    u32* const control = &blocks[DMA].registers[CONTROL];
    u32 value = READ_ONCE(*control);
    u32 before;

    while (value & SYNC_REQUEST) {
        before = cmpxchg(control, value, value & ~SYNC_REQUEST);
        if (before == value) return true;
        value = before;
    }
    return false;
}

/* The registers behind the ports of the reference block, as far as a look now and then can tell. */
static void look_behind_ports(const struct block* block)
{
    const u32 address = READ_ONCE(block->registers[INDIRECT_ADDRESS]);
    const u32 data = READ_ONCE(block->registers[INDIRECT_DATA]);

    /* The address is written before the data. */
    if (data == measurement) return;
    if (address == RANGE_LOW_ADDRESS) range_low = data;
    if (address == RANGE_HIGH_ADDRESS) range_high = data;
    if (address == PLL_SOURCE_ADDRESS) pll_source = data;
}

static int look(void* unused)
{
    int i;

    while (!kthread_should_stop()) {
        usleep_range(2000, 3000);
        mutex_lock(&lock);
        for (i = 0; i < BLOCKS; ++i) {
            take_acknowledge(&blocks[i]);
            take_enable(&blocks[i]);
        }
        look_behind_ports(&blocks[REFERENCE]);
        if (sync_state == IDLE && take_request()) {
            ++requests;
            set_status(&blocks[DMA], SYNCING, true);
            sync_state = ACTIVATING;
        } else if (sync_state == ACTIVATING && !is_held) {
            activate();
        }
        mutex_unlock(&lock);
    }
    return 0;
}

static struct block* find_block(const char* name)
{
    int i;

    for (i = 0; i < BLOCKS; ++i)
        if (!strcmp(blocks[i].uio.name, name)) return &blocks[i];
    return NULL;
}

static void measure(u32 id, u32 value)
{
    struct block* const reference = &blocks[REFERENCE];

    measurement = value << 8 | (id & 0xFF);
    WRITE_ONCE(reference->registers[INDIRECT_ADDRESS], MEASUREMENT_ADDRESS);
    WRITE_ONCE(reference->registers[INDIRECT_DATA], measurement);
    raise(reference, MEASUREMENT);
}

static int carry_locked(int argc, char** argv)
{
    const char* const word = argv[0];
    const bool is_event = !strcmp(word, "event");
    struct block* const block = is_event && argc == 3 ? find_block(argv[1]) : NULL;
    u32 numbers[2] = {0, 0};
    int i;

    if (argc > 3) return -EINVAL;
    for (i = is_event ? 2 : 1; i < argc; ++i)
        if (kstrtou32(argv[i], 0, &numbers[i - 1])) return -EINVAL;
    if (!strcmp(word, "measure") && argc == 3)
        measure(numbers[0], numbers[1]);
    else if (!strcmp(word, "lock") && argc == 2)
        set_status(&blocks[REFERENCE], SERVO_LOCKED, numbers[0]);
    else if (block && numbers[1] < EVENTS)
        raise(block, numbers[1]);
    else if (!strcmp(word, "hold") && argc == 2)
        is_held = numbers[0];
    else if (!strcmp(word, "complete") && argc == 1 && sync_state == ACTIVATING)
        activate();
    else if (!strcmp(word, "withhold") && argc == 2)
        withheld = numbers[0];
    else
        return -EINVAL;
    return 0;
}

static int carry(int argc, char** argv)
{
    int result;

    mutex_lock(&lock);
    result = carry_locked(argc, argv);
    mutex_unlock(&lock);
    return result;
}

static void show(struct seq_file* out)
{
    int i;

    mutex_lock(&lock);
    for (i = 0; i < BLOCKS; ++i)
        seq_printf(out, "block %s pending 0x%x enable 0x%x control 0x%x status 0x%x address 0x%x interrupts %u\n",
                   blocks[i].uio.name, READ_ONCE(blocks[i].registers[PENDING]), blocks[i].enabled,
                   READ_ONCE(blocks[i].registers[CONTROL]), READ_ONCE(blocks[i].registers[STATUS]),
                   READ_ONCE(blocks[i].registers[INDIRECT_ADDRESS]), blocks[i].interrupts);
    seq_printf(out, "requests %u\nsyncs %u\nrange %u %u\npll %u\n", requests, syncs, range_low, range_high, pll_source);
    mutex_unlock(&lock);
}

static struct k2_control control = {.carry = carry, .show = show};

static void remove_blocks(void)
{
    int i;

    for (i = 0; i < BLOCKS; ++i) {
        if (!blocks[i].registers) continue;
        uio_unregister_device(&blocks[i].uio);
        free_page(blocks[i].uio.mem[0].addr);
        blocks[i].registers = NULL;
    }
}

static int add_block(struct block* block)
{
    const unsigned long page = get_zeroed_page(GFP_KERNEL);
    int result;

    if (!page) return -ENOMEM;
    block->registers = (u32*)(page + block->offset);
    block->registers[IDENTITY] = block->id | (u32)block->build << 16;
    block->uio.version = "1";
    block->uio.irq = UIO_IRQ_CUSTOM;
    block->uio.mem[0].name = "registers";
    block->uio.mem[0].addr = page;
    block->uio.mem[0].offs = block->offset;
    block->uio.mem[0].size = PAGE_SIZE;
    block->uio.mem[0].memtype = UIO_MEM_LOGICAL;
    result = uio_register_device(&parent->dev, &block->uio);
    if (result) {
        block->registers = NULL;
        free_page(page);
    }
    return result;
}

static int __init start(void)
{
    int i, result = 0;

    parent = platform_device_register_simple("k2fpga", PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(parent)) return PTR_ERR(parent);
    for (i = 0; i < BLOCKS && !result; ++i)
        result = add_block(&blocks[i]);
    if (result) goto no_blocks;
    thread = kthread_run(look, NULL, "k2fpga");
    if (IS_ERR(thread)) {
        result = PTR_ERR(thread);
        goto no_blocks;
    }
    result = k2_control_register(&control, "k2fpga");
    if (result) goto no_control;
    return 0;

no_control:
    kthread_stop(thread);
no_blocks:
    remove_blocks();
    platform_device_unregister(parent);
    return result;
}

static void __exit stop(void)
{
    k2_control_unregister(&control);
    kthread_stop(thread);
    remove_blocks();
    platform_device_unregister(parent);
}

module_init(start);
module_exit(stop);
MODULE_DESCRIPTION("Stands in for the FPGA of an audio module");
MODULE_LICENSE("GPL");
