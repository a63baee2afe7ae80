// SPDX-License-Identifier: GPL-2.0
/*
 * The link driver of a unit, without the links: the generic netlink family "k2link", and the file k2hid of the
 * interfaces k2link0 to k2link2, which may be of any kind.
 *
 * A plugged cable is not yet a neighbour: it shows only while the interface is up.
 *
 * Control file /dev/k2link:
 *   plug PORT REMOTEID REMOTEPORT   unplug PORT   endpoint PORT ADMA   report PORT
 */
#include "control.h"

#include <linux/device.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/netdevice.h>
#include <linux/string.h>
#include <net/genetlink.h>
#include <net/net_namespace.h>

#define PORTS 3
#define NO_REMOTE 0xFFFFFFFFu

enum { COMMAND_STATUS = 1 };

enum {
    ATTRIBUTE_PORT = 1,
    ATTRIBUTE_REMOTE_ID,
    ATTRIBUTE_REMOTE_PORT,
    ATTRIBUTE_LINK_STATE,
    ATTRIBUTE_FSI_ENDPOINT,
    ATTRIBUTE_ADMA_ENDPOINT,
    ATTRIBUTES_END,
};

struct port
{
    u32 remote_id;
    u32 remote_port;
    u32 fsi_endpoint;
    u32 adma_endpoint;
    u32 hid;
    bool is_up;
    bool has_file;
};

/* Guards the ports. Taken with and without the lock of the interfaces, and never holds while that one is taken. */
static DEFINE_MUTEX(lock);
/* The third port carries no audio. */
static struct port ports[PORTS] = {
    {.remote_id = NO_REMOTE, .fsi_endpoint = 0x10, .adma_endpoint = 1},
    {.remote_id = NO_REMOTE, .fsi_endpoint = 0x20, .adma_endpoint = 2},
    {.remote_id = NO_REMOTE, .fsi_endpoint = 0x30, .adma_endpoint = 0},
};
static unsigned int requests;

/* --- The netlink family */

static int answer_status(struct sk_buff* request, struct genl_info* info);

static const struct nla_policy policy[ATTRIBUTES_END] = {
    [ATTRIBUTE_PORT] = {.type = NLA_U32},         [ATTRIBUTE_REMOTE_ID] = {.type = NLA_U32},
    [ATTRIBUTE_REMOTE_PORT] = {.type = NLA_U32},  [ATTRIBUTE_LINK_STATE] = {.type = NLA_U32},
    [ATTRIBUTE_FSI_ENDPOINT] = {.type = NLA_U32}, [ATTRIBUTE_ADMA_ENDPOINT] = {.type = NLA_U32},
};

static const struct genl_small_ops family_operations[] = {
    {.cmd = COMMAND_STATUS, .doit = answer_status},
};

static const struct genl_multicast_group groups[] = {
    {.name = "notify"},
};

static struct genl_family family = {
    .name = "k2link",
    .version = 1,
    .maxattr = ATTRIBUTES_END - 1,
    .policy = policy,
    .module = THIS_MODULE,
    .small_ops = family_operations,
    .n_small_ops = ARRAY_SIZE(family_operations),
    .resv_start_op = COMMAND_STATUS + 1,
    .mcgrps = groups,
    .n_mcgrps = ARRAY_SIZE(groups),
};

/* The state of a port as a message, with the lock held. */
static struct sk_buff* make_report(u32 number, u32 to, u32 sequence)
{
    const struct port* port = &ports[number];
    const bool shows = port->is_up && port->remote_id != NO_REMOTE;
    struct sk_buff* message = genlmsg_new(NLMSG_DEFAULT_SIZE, GFP_KERNEL);
    void* header;

    if (!message) return NULL;
    header = genlmsg_put(message, to, sequence, &family, 0, COMMAND_STATUS);
    if (!header || nla_put_u32(message, ATTRIBUTE_PORT, number) ||
        nla_put_u32(message, ATTRIBUTE_REMOTE_ID, shows ? port->remote_id : NO_REMOTE) ||
        nla_put_u32(message, ATTRIBUTE_REMOTE_PORT, port->remote_port) ||
        nla_put_u32(message, ATTRIBUTE_LINK_STATE, shows) ||
        nla_put_u32(message, ATTRIBUTE_FSI_ENDPOINT, port->fsi_endpoint) ||
        nla_put_u32(message, ATTRIBUTE_ADMA_ENDPOINT, port->adma_endpoint)) {
        nlmsg_free(message);
        return NULL;
    }
    genlmsg_end(message, header);
    return message;
}

static void notify(u32 number)
{
    struct sk_buff* message = make_report(number, 0, 0);

    if (message) genlmsg_multicast(&family, message, 0, 0, GFP_KERNEL);
}

static int answer_status(struct sk_buff* request, struct genl_info* info)
{
    struct sk_buff* message;
    u32 number;

    if (!info->attrs[ATTRIBUTE_PORT]) return -EINVAL;
    number = nla_get_u32(info->attrs[ATTRIBUTE_PORT]);
    if (number >= PORTS) return -EINVAL;
    mutex_lock(&lock);
    ++requests;
    message = make_report(number, info->snd_portid, info->snd_seq);
    mutex_unlock(&lock);
    return message ? genlmsg_reply(message, info) : -ENOMEM;
}

/* --- The interfaces */

static struct port* port_of(const struct net_device* interface)
{
    u32 number;

    if (!net_eq(dev_net(interface), &init_net) || sscanf(interface->name, "k2link%u", &number) != 1 || number >= PORTS)
        return NULL;
    return &ports[number];
}

static ssize_t k2hid_show(struct device* device, struct device_attribute* attribute, char* to)
{
    const struct port* port = port_of(to_net_dev(device));

    return port ? sysfs_emit(to, "%u\n", READ_ONCE(port->hid)) : -ENODEV;
}

static ssize_t k2hid_store(struct device* device, struct device_attribute* attribute, const char* from, size_t count)
{
    struct port* port = port_of(to_net_dev(device));
    u32 hid;

    if (!port) return -ENODEV;
    if (kstrtou32(from, 10, &hid)) return -EINVAL;
    WRITE_ONCE(port->hid, hid);
    return count;
}

static DEVICE_ATTR_RW(k2hid);

static void set_up(struct port* port, bool is_up)
{
    mutex_lock(&lock);
    if (port->is_up != is_up) {
        port->is_up = is_up;
        if (port->remote_id != NO_REMOTE) notify(port - ports);
    }
    mutex_unlock(&lock);
}

static int on_interface(struct notifier_block* block, unsigned long event, void* data)
{
    struct net_device* interface = netdev_notifier_info_to_dev(data);
    struct port* port = port_of(interface);

    if (!port) return NOTIFY_DONE;
    switch (event) {
    case NETDEV_REGISTER:
        port->has_file = device_create_file(&interface->dev, &dev_attr_k2hid) == 0;
        break;
    case NETDEV_UNREGISTER:
        if (port->has_file) device_remove_file(&interface->dev, &dev_attr_k2hid);
        port->has_file = false;
        set_up(port, false);
        break;
    case NETDEV_UP:
        set_up(port, true);
        break;
    case NETDEV_DOWN:
        set_up(port, false);
        break;
    }
    return NOTIFY_DONE;
}

static struct notifier_block interfaces = {.notifier_call = on_interface};

/* --- The control file */

static int carry(int argc, char** argv)
{
    u32 number, numbers[2] = {0, 0};
    struct port* port;
    int i;

    if (argc < 2 || argc > 4 || kstrtou32(argv[1], 0, &number) || number >= PORTS) return -EINVAL;
    for (i = 2; i < argc; ++i)
        if (kstrtou32(argv[i], 0, &numbers[i - 2])) return -EINVAL;
    port = &ports[number];
    mutex_lock(&lock);
    if (!strcmp(argv[0], "plug") && argc == 4) {
        port->remote_id = numbers[0];
        port->remote_port = numbers[1];
    } else if (!strcmp(argv[0], "unplug") && argc == 2) {
        port->remote_id = NO_REMOTE;
    } else if (!strcmp(argv[0], "endpoint") && argc == 3) {
        port->adma_endpoint = numbers[0];
    } else if (strcmp(argv[0], "report") || argc != 2) {
        mutex_unlock(&lock);
        return -EINVAL;
    }
    notify(number);
    mutex_unlock(&lock);
    return 0;
}

static void show(struct seq_file* out)
{
    int i;

    mutex_lock(&lock);
    for (i = 0; i < PORTS; ++i)
        seq_printf(out, "port %d %s remote 0x%x %u adma %u hid %u\n", i, ports[i].is_up ? "up" : "down",
                   ports[i].remote_id, ports[i].remote_port, ports[i].adma_endpoint, ports[i].hid);
    seq_printf(out, "requests %u\n", requests);
    mutex_unlock(&lock);
}

static struct k2_control control = {.carry = carry, .show = show};

static int __init start(void)
{
    int result = genl_register_family(&family);

    if (result) return result;
    /* Tells of the interfaces that are there already, too. */
    result = register_netdevice_notifier(&interfaces);
    if (result) goto no_interfaces;
    result = k2_control_register(&control, "k2link");
    if (result) goto no_control;
    return 0;

no_control:
    unregister_netdevice_notifier(&interfaces);
no_interfaces:
    genl_unregister_family(&family);
    return result;
}

static void __exit stop(void)
{
    k2_control_unregister(&control);
    /* Takes the files of the interfaces away. */
    unregister_netdevice_notifier(&interfaces);
    genl_unregister_family(&family);
}

module_init(start);
module_exit(stop);
MODULE_DESCRIPTION("Stands in for the link driver of an audio module");
MODULE_LICENSE("GPL");
