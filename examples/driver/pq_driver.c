// SPDX-License-Identifier: MIT
/*
 * The driver around pq_core: images from firmware files, a device with two attributes, and vertical
 * blanks. There is no such hardware: its registers are an array, its interrupt is a delayed work.
 */
#include <linux/device.h>
#include <linux/firmware.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/platform_device.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/sysfs.h>
#include <linux/workqueue.h>

#include "pq_core.h"
#include "vexil_pubif.h"

#define PQ_NAME "pq_pipeline"
#define PQ_MAP_FILE "vexil/pq_pipeline.pim"
#define PQ_RULE_FILE "vexil/pq_pipeline.rule"
#define PQ_NUM_ADDRESSES 0x200

static unsigned int pairs = 16;
module_param(pairs, uint, 0444);
MODULE_PARM_DESC(pairs, "register pairs that fit into a vertical blank");

struct pq_device {
	struct device *dev;
	struct mutex lock; /* of pq, registers and frames */
	struct pq pq;
	struct pq_output output;
	struct delayed_work vertical_blank;
	unsigned int frames; /* since the last change of sources */
	u16 registers[PQ_NUM_ADDRESSES];
};

/* ---- what pq_core writes ---- */

static void pq_hardware(void *context, u8 domain, u32 address, u16 mask, u16 value)
{
	struct pq_device *pq = context;

	/* Real hardware has a window for each time domain. */
	if (address >= PQ_NUM_ADDRESSES) {
		dev_warn_ratelimited(pq->dev, "no register 0x%x in domain %u\n", address, domain);
		return;
	}
	pq->registers[address] = (pq->registers[address] & ~mask) | (value & mask);
}

static void pq_software(void *context, u32 number, u32 value)
{
	struct pq_device *pq = context;

	dev_info(pq->dev, "parameter %u is %u\n", number, value);
}

static void pq_tone_curve(void *context, const char *bytes, u32 size)
{
	struct pq_device *pq = context;

	dev_info(pq->dev, "tone curve of %u bytes\n", size);
}

static void pq_scene_filter(void *context, const char *name, const char *text, u32 size)
{
	struct pq_device *pq = context;

	dev_info(pq->dev, "%s takes %u bytes of parameters\n", name, size);
}

/* ---- vertical blanks ---- */

/*
 * A real driver queues this work from its interrupt, which must not call the library itself: every
 * call may sleep.
 */
static void pq_vertical_blank(struct work_struct *work)
{
	struct pq_device *pq = container_of(work, struct pq_device, vertical_blank.work);
	bool more;

	mutex_lock(&pq->lock);
	more = pq_frame(&pq->pq);
	pq->frames++;
	if (!more)
		dev_info(pq->dev, "picture set after %u frames\n", pq->frames);
	mutex_unlock(&pq->lock);
	if (more)
		queue_delayed_work(system_highpri_wq, &pq->vertical_blank, msecs_to_jiffies(16));
}

/* ---- attributes ---- */

/* "Input:Hdmi1;Room:120" */
static ssize_t sources_store(struct device *dev, struct device_attribute *attribute,
			     const char *text, size_t size)
{
	struct pq_device *pq = dev_get_drvdata(dev);
	char *copy = kstrdup(text, GFP_KERNEL);
	int error;

	if (!copy)
		return -ENOMEM;
	mutex_lock(&pq->lock);
	error = pq_evaluate(&pq->pq, strim(copy));
	pq->frames = 0;
	mutex_unlock(&pq->lock);
	kfree(copy);
	if (error)
		return error;
	queue_delayed_work(system_highpri_wq, &pq->vertical_blank, 0);
	return size;
}
static DEVICE_ATTR_WO(sources);

/* Every register that is not 0: address and value. */
static ssize_t registers_show(struct device *dev, struct device_attribute *attribute, char *text)
{
	struct pq_device *pq = dev_get_drvdata(dev);
	ssize_t length = 0;
	u32 address;

	mutex_lock(&pq->lock);
	for (address = 0; address < PQ_NUM_ADDRESSES; address++) {
		if (pq->registers[address])
			length += sysfs_emit_at(text, length, "%03x %04x\n", address,
						pq->registers[address]);
	}
	mutex_unlock(&pq->lock);
	return length;
}
static DEVICE_ATTR_RO(registers);

static struct attribute *pq_attrs[] = {
	&dev_attr_sources.attr,
	&dev_attr_registers.attr,
	NULL,
};
ATTRIBUTE_GROUPS(pq);

/* ---- life ---- */

static void pq_free_image(void *bytes)
{
	kvfree(bytes);
}

/*
 * Firmware is not the driver's to write, and may be mapped read-only; adoption writes into the
 * image. Hence a copy, which lives as long as the device is bound.
 */
static int pq_load_image(struct device *dev, const char *name, struct pq_image *image)
{
	const struct firmware *file;
	int error = request_firmware(&file, name, dev);

	if (error)
		return error;
	image->size = file->size;
	image->bytes = file->size == image->size ? kvmalloc(file->size, GFP_KERNEL) : NULL;
	if (image->bytes)
		memcpy(image->bytes, file->data, file->size);
	release_firmware(file);
	if (!image->bytes)
		return -ENOMEM;
	return devm_add_action_or_reset(dev, pq_free_image, image->bytes);
}

static void pq_stop_device(void *data)
{
	struct pq_device *pq = data;

	cancel_delayed_work_sync(&pq->vertical_blank);
	pq_stop(&pq->pq);
	mutex_destroy(&pq->lock);
}

static int pq_probe(struct platform_device *pdev)
{
	const _PUBIF_VEXIL *vexil = vexil_pubif_table();
	struct device *dev = &pdev->dev;
	struct pq_image map, rules;
	struct pq_device *pq;
	int error;

	if (!vexil)
		return dev_err_probe(dev, -ENODEV, "vexil.ko is not loaded\n");
	pq = devm_kzalloc(dev, sizeof(*pq), GFP_KERNEL);
	if (!pq)
		return -ENOMEM;
	pq->dev = dev;
	pq->output = (struct pq_output){pq, pq_hardware, pq_software, pq_tone_curve, pq_scene_filter};
	platform_set_drvdata(pdev, pq);

	/*
	 * What is managed goes in reverse order: the work and the contexts stop before their images
	 * are freed, and those before the device's own record.
	 */
	error = pq_load_image(dev, PQ_MAP_FILE, &map);
	if (!error)
		error = pq_load_image(dev, PQ_RULE_FILE, &rules);
	if (error)
		return dev_err_probe(dev, error, "no images\n");
	error = pq_start(&pq->pq, vexil, &pq->output, pairs, map, rules);
	if (error)
		return dev_err_probe(dev, error, "the images are refused\n");
	mutex_init(&pq->lock);
	INIT_DELAYED_WORK(&pq->vertical_blank, pq_vertical_blank);
	error = devm_add_action_or_reset(dev, pq_stop_device, pq);
	if (error)
		return error;
	queue_delayed_work(system_highpri_wq, &pq->vertical_blank, 0);
	return 0;
}

static struct platform_driver pq_driver = {
	.driver = {
		.name = PQ_NAME,
		.dev_groups = pq_groups,
	},
};

static struct platform_device *pq_platform_device;

static int __init pq_init(void)
{
	pq_platform_device = platform_create_bundle(&pq_driver, pq_probe, NULL, 0, NULL, 0);
	return PTR_ERR_OR_ZERO(pq_platform_device);
}
module_init(pq_init);

static void __exit pq_exit(void)
{
	platform_device_unregister(pq_platform_device);
	platform_driver_unregister(&pq_driver);
}
module_exit(pq_exit);

/* For modprobe. A driver that links to no function of vexil.ko could not do without. */
MODULE_SOFTDEP("pre: vexil");
MODULE_FIRMWARE(PQ_MAP_FILE);
MODULE_FIRMWARE(PQ_RULE_FILE);
MODULE_DESCRIPTION("Example of a picture pipeline's driver, on registers that are an array");
MODULE_LICENSE("Dual MIT/GPL");
