// SPDX-License-Identifier: GPL-2.0
#include "control.h"

#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#define LONGEST_LINE 256

static struct k2_control* control_of(struct miscdevice* device)
{
    return container_of(device, struct k2_control, device);
}

static int show(struct seq_file* out, void* unused)
{
    struct k2_control* control = out->private;

    control->show(out);
    return 0;
}

static int open(struct inode* inode, struct file* file)
{
    /* The misc device leaves itself in private_data; a seq_file wants that to be empty. */
    struct miscdevice* device = file->private_data;

    file->private_data = NULL;
    return single_open(file, show, control_of(device));
}

static ssize_t write(struct file* file, const char __user* from, size_t count, loff_t* position)
{
    struct k2_control* control = ((struct seq_file*)file->private_data)->private;
    char *line, **words;
    int argc, result;

    if (count > LONGEST_LINE) return -EINVAL;
    line = memdup_user_nul(from, count);
    if (IS_ERR(line)) return PTR_ERR(line);
    words = argv_split(GFP_KERNEL, line, &argc);
    kfree(line);
    if (!words) return -ENOMEM;
    result = argc > 0 ? control->carry(argc, words) : -EINVAL;
    argv_free(words);
    return result < 0 ? result : count;
}

static const struct file_operations operations = {
    .owner = THIS_MODULE,
    .open = open,
    .read = seq_read,
    .write = write,
    .llseek = seq_lseek,
    .release = single_release,
};

int k2_control_register(struct k2_control* control, const char* name)
{
    control->device.minor = MISC_DYNAMIC_MINOR;
    control->device.name = name;
    control->device.fops = &operations;
    control->device.mode = 0600;
    return misc_register(&control->device);
}

void k2_control_unregister(struct k2_control* control)
{
    misc_deregister(&control->device);
}
