/* SPDX-License-Identifier: GPL-2.0 */
#ifndef K2_CONTROL_H
#define K2_CONTROL_H

#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/seq_file.h>

/*
 * A control file in /dev. A write is one command line, and fails with EINVAL if it cannot be carried out; a read gives
 * the state as text.
 */
struct k2_control
{
    struct miscdevice device;
    /* Takes the words of a line; 0 or a negative error. */
    int (*carry)(int argc, char** argv);
    void (*show)(struct seq_file* out);
};

int k2_control_register(struct k2_control* control, const char* name);
void k2_control_unregister(struct k2_control* control);

#endif
