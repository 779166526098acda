// SPDX-License-Identifier: GPL-2.0
/*
 * A reference driver for docs/nodes.md: it serves on real sysfs every node that a driver has to, with
 * a UFS device behind it that is only made up. To be read by those who write their own driver, and
 * loaded where the service is tried without a phone. As a kernel module it is under GPL-2.0.
 *
 * Never load it where the real driver is: both have the same name.
 */

#include <linux/device.h>
#include <linux/kernel.h>
#include <linux/kobject.h>
#include <linux/ktime.h>
#include <linux/mod_devicetable.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/platform_device.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/sysfs.h>
#include <linux/version.h>
#include <linux/workqueue.h>
#include <scsi/scsi_host.h>

#define MAX_CONTROLLERS 8
/* A store is a page at most, and the shortest range is "1,1," there. */
#define MAX_RANGES (PAGE_SIZE / 4)
#define HEALTH_REPORT_SIZE 512

/* fbo_prog_state of a UFS 4.0 device. */
enum { IDLE = 0, ONGOING = 1, ANALYSED = 2, OPTIMISED = 3, MAPPED = 5 };

/* fbs_flc_ops and fbs_defrag_ops of a UFS 3.1 device. */
enum { IDLE_31 = 0, ACCEPTED_31 = 1, ONGOING_31 = 2, ANALYSED_31 = 3, DEFRAGMENTED_31 = 0 };

/* Commands of fbo_operation_control, and of the two that enable on UFS 3.1. */
enum { CLEAR = 0, ANALYSE = 1, OPTIMISE = 2, MAP = 4, ENABLE_31 = 1 };

enum { SNAPSHOT_IDLE, IN_PROGRESS, BACKUP_COMPLETE, RESTORE_COMPLETE, DROPPED_BY_HOST };
static const char *const snapshot_words[] = {
	"idle", "inprogress", "complete_backup", "complete_restore", "drop_by_host",
};

#define TRIAL_PARAMETER(name, value, mode, description)                                            \
	static int name = value;                                                                   \
	module_param(name, int, mode);                                                             \
	MODULE_PARM_DESC(name, description)

TRIAL_PARAMETER(generation, 40, 0444, "40: UFS 4.0, 31: UFS 3.1");
TRIAL_PARAMETER(controllers, 1, 0444, "number of host controllers");
TRIAL_PARAMETER(max_lrc, 127, 0644, "most ranges in a list; 0: as many as fit a store");
TRIAL_PARAMETER(linear, 0, 0644, "1: a linear mapping is offered");
TRIAL_PARAMETER(cycles, 100, 0644, "program/erase cycles in the health report");
TRIAL_PARAMETER(accept_ms, 0, 0644, "until a UFS 3.1 device has accepted a list");
TRIAL_PARAMETER(analysis_ms, 3000, 0644, "how long an analysis takes");
TRIAL_PARAMETER(optimise_ms, 3000, 0644, "how long an optimisation takes");
TRIAL_PARAMETER(mapping_ms, 2000, 0644, "how long a linear mapping takes");
TRIAL_PARAMETER(clear_ms, 0, 0644, "how long a clear takes");
TRIAL_PARAMETER(backup_ms, 1500, 0644, "how long a snapshot's backup takes");
TRIAL_PARAMETER(drop_ms, 0, 0644, "how long a drop takes, then idle; 0: drop_by_host at once");
TRIAL_PARAMETER(drop_event_ms, 0, 0644, "from a backup's end to a drop event; 0: none");
/* What can go wrong. */
TRIAL_PARAMETER(refuse_lists, 0, 0644, "so many lists are refused");
TRIAL_PARAMETER(analysis_end, -1, 0644, "state at the end of an analysis; -1: analysed");
TRIAL_PARAMETER(optimise_end, -1, 0644, "state at the end of an optimisation; -1: optimised");
TRIAL_PARAMETER(report_length, PAGE_SIZE, 0644, "most characters of the fragmentation report");

/* Something that takes the device its time. */
struct operation {
	int state;
	int next; /* the state from then on */
	ktime_t then;
};

struct range_list {
	int count; /* 0: there is no list */
	struct {
		int start, count;
	} range[MAX_RANGES];
};

struct trial_ufs {
	struct device *dev;
	/* Held while anything below is looked at: several nodes share it, and several clients come. */
	struct mutex lock;
	struct range_list list;
	struct range_list optimised; /* the list that has been optimised last */
	bool is_optimising;
	struct operation fbo; /* all of UFS 4.0; list and analysis of UFS 3.1 */
	struct operation defrag; /* of UFS 3.1 */
	struct operation snapshot;
	struct delayed_work drop_event;
	/* What is only written, and can be read back. */
	int debug, fbo_exe_level, fbo_wholefile_enable, fbo_err_cnt, fbo_retry_cnt, dropfreesize;
};

static void begin(struct operation *operation, int state, int next, int ms)
{
	operation->state = ms > 0 ? state : next;
	operation->next = next;
	operation->then = ktime_add_ms(ktime_get(), max(ms, 0));
}

static void settle(struct operation *operation)
{
	if (ktime_compare(ktime_get(), operation->then) >= 0)
		operation->state = operation->next;
}

/*
 * Takes the lock and brings all states up to date. A real driver is told by its device; what matters
 * is that whoever looks after a store has returned finds what the store has begun.
 */
static struct trial_ufs *lock_device(struct device *dev)
{
	struct trial_ufs *ufs = dev_get_drvdata(dev);

	mutex_lock(&ufs->lock);
	settle(&ufs->fbo);
	settle(&ufs->defrag);
	settle(&ufs->snapshot);
	if (ufs->is_optimising && (generation == 31 ? ufs->defrag.state == DEFRAGMENTED_31 :
						      ufs->fbo.state == OPTIMISED)) {
		ufs->optimised = ufs->list;
		ufs->is_optimising = false;
	}
	return ufs;
}

/* Ends a store: with an error, or all of it has been taken. */
static ssize_t unlock_device(struct trial_ufs *ufs, int err, size_t size)
{
	mutex_unlock(&ufs->lock);
	return err ? err : size;
}

static ssize_t show_state(struct device *dev, size_t offset, char *buf)
{
	struct trial_ufs *ufs = lock_device(dev);
	const int state = ((struct operation *)((char *)ufs + offset))->state;

	mutex_unlock(&ufs->lock);
	return sysfs_emit(buf, "%d\n", state);
}

#define STATE_ATTR(name, operation)                                                                \
	static ssize_t name##_show(struct device *dev, struct device_attribute *attr, char *buf)   \
	{                                                                                          \
		return show_state(dev, offsetof(struct trial_ufs, operation), buf);                \
	}                                                                                          \
	static DEVICE_ATTR_RO(name)

#define VALUE_ATTR(name, value)                                                                    \
	static ssize_t name##_show(struct device *dev, struct device_attribute *attr, char *buf)   \
	{                                                                                          \
		return sysfs_emit(buf, "%d\n", value);                                             \
	}                                                                                          \
	static DEVICE_ATTR_RO(name)

#define NUMBER_ATTR(name)                                                                          \
	static ssize_t name##_show(struct device *dev, struct device_attribute *attr, char *buf)   \
	{                                                                                          \
		const struct trial_ufs *ufs = dev_get_drvdata(dev);                                \
		return sysfs_emit(buf, "%d\n", READ_ONCE(ufs->name));                              \
	}                                                                                          \
	static ssize_t name##_store(struct device *dev, struct device_attribute *attr,             \
				    const char *buf, size_t size)                                  \
	{                                                                                          \
		struct trial_ufs *ufs = dev_get_drvdata(dev);                                      \
		int number;                                                                        \
		const int err = kstrtoint(buf, 10, &number);                                       \
		if (!err)                                                                          \
			WRITE_ONCE(ufs->name, number);                                             \
		return err ? err : size;                                                           \
	}                                                                                          \
	static DEVICE_ATTR_RW(name)

VALUE_ATTR(fbo_support, 1);
VALUE_ATTR(is_ufs31, generation == 31);
VALUE_ATTR(fbo_min_lrs, 1);
VALUE_ATTR(fbo_max_lrc, max_lrc);
NUMBER_ATTR(debug);
NUMBER_ATTR(fbo_exe_level);
NUMBER_ATTR(fbo_wholefile_enable);
NUMBER_ATTR(fbo_err_cnt);
NUMBER_ATTR(fbo_retry_cnt);
VALUE_ATTR(fbo2_linear_map_state, linear);
VALUE_ATTR(fbo2_linear_mapping_start, 0);
VALUE_ATTR(fbo2_linear_mapping_end, 262144);
STATE_ATTR(fbo_prog_state, fbo);
STATE_ATTR(fbs_flc_ops, fbo);
STATE_ATTR(fbs_defrag_ops, defrag);
VALUE_ATTR(eua_support, 1);
VALUE_ATTR(eua_support_size, 4096);
NUMBER_ATTR(dropfreesize);

/*
 * sysfs cuts what is written at a page and hands on the rest as another store, so the line feed at
 * the end is the only mark that a list is whole: one that is cut in a number looks right otherwise.
 */
static bool is_whole(const char *buf, size_t size)
{
	return strchr(buf, '\n') == buf + size - 1;
}

static int parse_list(const char *buf, size_t size, struct range_list *list)
{
	char *text, *next, *start, *count;
	int n = 0, err = 0;

	if (!is_whole(buf, size))
		return -EINVAL;
	text = next = kstrndup(buf, size - 1, GFP_KERNEL);
	if (!text)
		return -ENOMEM;
	while (!err && next) {
		start = strsep(&next, ",");
		count = strsep(&next, ",");
		if (n == MAX_RANGES || !count)
			err = -EINVAL;
		err = err ?: kstrtoint(start, 10, &list->range[n].start);
		err = err ?: kstrtoint(count, 10, &list->range[n].count);
		if (!err && (list->range[n].start < 0 || list->range[n].count < 0))
			err = -EINVAL;
		n++;
	}
	kfree(text);
	if (!err)
		list->count = n;
	return err;
}

static int take_list(struct trial_ufs *ufs, const char *buf, size_t size)
{
	int err;

	/* The list of an operation stays what it is until the clear. */
	if (ufs->fbo.state != IDLE && (generation != 31 || ufs->fbo.state != ACCEPTED_31))
		return -EBUSY;
	/* The repetitions of a list that has been accepted meanwhile; see docs/nodes.md. */
	if (ufs->fbo.state == ACCEPTED_31 && !is_whole(buf, size))
		return -EINVAL;
	err = parse_list(buf, size, &ufs->list);
	if (!err && max_lrc > 0 && ufs->list.count > max_lrc)
		err = -EINVAL;
	if (!err && refuse_lists > 0) {
		refuse_lists--;
		err = -EIO;
	}
	/* A start that follows must not work on the list before. */
	if (err)
		ufs->list.count = 0;
	if (generation == 31)
		begin(&ufs->fbo, IDLE_31, err ? IDLE_31 : ACCEPTED_31, err ? 0 : accept_ms);
	return err;
}

static ssize_t fbo_send_lr_list_store(struct device *dev, struct device_attribute *attr,
				      const char *buf, size_t size)
{
	struct trial_ufs *ufs = lock_device(dev);

	return unlock_device(ufs, take_list(ufs, buf, size), size);
}
static DEVICE_ATTR_WO(fbo_send_lr_list);

static ssize_t fbo_get_lr_frag_level_show(struct device *dev, struct device_attribute *attr,
					  char *buf)
{
	struct trial_ufs *ufs = lock_device(dev);
	const int count = ufs->list.count;
	const bool is_optimised =
		count && count == ufs->optimised.count &&
		!memcmp(ufs->list.range, ufs->optimised.range, count * sizeof(*ufs->list.range));
	ssize_t length = sysfs_emit(buf, "frag_lvl: %x, lr_count: %d, optimised: %d\n",
				    is_optimised ? 2 : 7, count, is_optimised ? count : 0);

	mutex_unlock(&ufs->lock);
	return clamp_t(ssize_t, report_length, 0, length);
}
static DEVICE_ATTR_RO(fbo_get_lr_frag_level);

/* Any state may be cleared, also a running operation. Its list is not in force any more. */
static void clear(struct trial_ufs *ufs, struct operation *operation)
{
	begin(operation, operation->state, IDLE, clear_ms);
	ufs->is_optimising = false;
	if (operation == &ufs->fbo)
		ufs->list.count = 0;
}

/* Starts an operation, or refuses it because the device is not ready for it. */
static int start(struct operation *operation, bool is_ready, int ongoing, int end, int ms)
{
	if (operation->state == ongoing)
		return -EBUSY;
	if (!is_ready)
		return -EINVAL;
	begin(operation, ongoing, end, ms);
	return 0;
}

static int start_analysis(struct trial_ufs *ufs, int required, int ongoing, int analysed)
{
	const bool is_ready = ufs->list.count > 0 && ufs->fbo.state == required;

	return start(&ufs->fbo, is_ready, ongoing, analysis_end < 0 ? analysed : analysis_end,
		     analysis_ms);
}

static int start_optimisation(struct trial_ufs *ufs, struct operation *operation, int required,
			      int ongoing, int optimised)
{
	const int err = start(operation, ufs->fbo.state == required, ongoing,
			      optimise_end < 0 ? optimised : optimise_end, optimise_ms);

	if (!err)
		ufs->is_optimising = true;
	return err;
}

static ssize_t fbo_operation_control_store(struct device *dev, struct device_attribute *attr,
					   const char *buf, size_t size)
{
	struct trial_ufs *ufs;
	int command;
	int err = kstrtoint(buf, 10, &command);

	if (err)
		return err;
	ufs = lock_device(dev);
	switch (command) {
	case CLEAR:
		clear(ufs, &ufs->fbo);
		break;
	case ANALYSE:
		err = start_analysis(ufs, IDLE, ONGOING, ANALYSED);
		break;
	case OPTIMISE:
		err = start_optimisation(ufs, &ufs->fbo, ANALYSED, ONGOING, OPTIMISED);
		break;
	case MAP:
		err = start(&ufs->fbo, linear && ufs->list.count > 0 && ufs->fbo.state == IDLE,
			    ONGOING, MAPPED, mapping_ms);
		break;
	default:
		err = -EINVAL;
	}
	return unlock_device(ufs, err, size);
}
static DEVICE_ATTR_WO(fbo_operation_control);

static ssize_t fbs_flc_enable_store(struct device *dev, struct device_attribute *attr,
				    const char *buf, size_t size)
{
	struct trial_ufs *ufs;
	int command;
	int err = kstrtoint(buf, 10, &command);

	if (err)
		return err;
	ufs = lock_device(dev);
	if (command == CLEAR)
		clear(ufs, &ufs->fbo);
	else if (command == ENABLE_31)
		err = start_analysis(ufs, ACCEPTED_31, ONGOING_31, ANALYSED_31);
	else
		err = -EINVAL;
	return unlock_device(ufs, err, size);
}
static DEVICE_ATTR_WO(fbs_flc_enable);

static ssize_t fbs_defrag_enable_store(struct device *dev, struct device_attribute *attr,
				       const char *buf, size_t size)
{
	struct trial_ufs *ufs;
	int command;
	int err = kstrtoint(buf, 10, &command);

	if (err)
		return err;
	ufs = lock_device(dev);
	if (command == CLEAR)
		clear(ufs, &ufs->defrag);
	else if (command == ENABLE_31)
		err = start_optimisation(ufs, &ufs->defrag, ANALYSED_31, ONGOING_31,
					 DEFRAGMENTED_31);
	else
		err = -EINVAL;
	return unlock_device(ufs, err, size);
}
static DEVICE_ATTR_WO(fbs_defrag_enable);

/* Nodes that devices of one generation have. */
#define UFS40_ATTRS                                                                                \
	&dev_attr_fbo_operation_control.attr, &dev_attr_fbo_prog_state.attr,                       \
	&dev_attr_fbo2_linear_map_state.attr, &dev_attr_fbo2_linear_mapping_start.attr,            \
	&dev_attr_fbo2_linear_mapping_end.attr
#define UFS31_ATTRS                                                                                \
	&dev_attr_fbs_flc_enable.attr, &dev_attr_fbs_flc_ops.attr,                                 \
	&dev_attr_fbs_defrag_enable.attr, &dev_attr_fbs_defrag_ops.attr

static struct attribute *fbo_attrs[] = {
	&dev_attr_fbo_support.attr,
	&dev_attr_is_ufs31.attr,
	&dev_attr_fbo_min_lrs.attr,
	&dev_attr_fbo_max_lrc.attr,
	&dev_attr_fbo_get_lr_frag_level.attr,
	&dev_attr_debug.attr,
	&dev_attr_fbo_exe_level.attr,
	&dev_attr_fbo_wholefile_enable.attr,
	&dev_attr_fbo_err_cnt.attr,
	&dev_attr_fbo_retry_cnt.attr,
	&dev_attr_fbo_send_lr_list.attr,
	UFS40_ATTRS,
	UFS31_ATTRS,
	NULL,
};

static umode_t fbo_is_visible(struct kobject *kobj, struct attribute *attr, int index)
{
	static const struct attribute *const ufs40[] = { UFS40_ATTRS, NULL };
	static const struct attribute *const ufs31[] = { UFS31_ATTRS, NULL };
	const struct attribute *const *other = generation == 31 ? ufs40 : ufs31;

	while (*other)
		if (*other++ == attr)
			return 0;
	return attr->mode;
}

static const struct attribute_group fbo_group = {
	.name = "ufsfbo",
	.attrs = fbo_attrs,
	.is_visible = fbo_is_visible,
};

static ssize_t eua_file_lba_unmap_store(struct device *dev, struct device_attribute *attr,
					const char *buf, size_t size)
{
	struct range_list *list = kmalloc(sizeof(*list), GFP_KERNEL);
	const int err = list ? parse_list(buf, size, list) : -ENOMEM;
	int i;

	/* Here the device would be sent an UNMAP for each. */
	for (i = 0; !err && i < list->count; i++)
		dev_info(dev, "unmap %d,%d\n", list->range[i].start, list->range[i].count);
	kfree(list);
	return err ? err : size;
}
static DEVICE_ATTR_WO(eua_file_lba_unmap);

static struct attribute *eua_attrs[] = {
	&dev_attr_eua_support.attr,
	&dev_attr_eua_support_size.attr,
	&dev_attr_eua_file_lba_unmap.attr,
	NULL,
};
static const struct attribute_group eua_group = { .name = "ufseua", .attrs = eua_attrs };

/* The device asks for a drop. In a work, as this may sleep and allocates memory. */
static void send_drop_event(struct work_struct *work)
{
	struct trial_ufs *ufs = container_of(work, struct trial_ufs, drop_event.work);
	char *strings[] = { "UFS_SNAPSHOT_DROP_EVENT", NULL };

	kobject_uevent_env(&ufs->dev->kobj, KOBJ_CHANGE, strings);
}

static int start_snapshot(struct trial_ufs *ufs)
{
	if (ufs->snapshot.state == IN_PROGRESS || ufs->snapshot.state == BACKUP_COMPLETE)
		return -EBUSY;
	begin(&ufs->snapshot, IN_PROGRESS, BACKUP_COMPLETE, backup_ms);
	if (drop_event_ms > 0)
		mod_delayed_work(system_wq, &ufs->drop_event,
				 msecs_to_jiffies(max(backup_ms, 0) + drop_event_ms));
	return 0;
}

/* Some makers' devices take their time and are idle then; others drop at once, and say so. */
static void stop_snapshot(struct trial_ufs *ufs)
{
	cancel_delayed_work(&ufs->drop_event);
	begin(&ufs->snapshot, ufs->snapshot.state, drop_ms > 0 ? SNAPSHOT_IDLE : DROPPED_BY_HOST,
	      drop_ms);
}

static ssize_t ctrl_store(struct device *dev, struct device_attribute *attr, const char *buf,
			  size_t size)
{
	struct trial_ufs *ufs = lock_device(dev);
	int err = 0;

	if (sysfs_streq(buf, "start"))
		err = start_snapshot(ufs);
	else if (sysfs_streq(buf, "stop"))
		stop_snapshot(ufs);
	else
		err = -EINVAL;
	return unlock_device(ufs, err, size);
}
static DEVICE_ATTR_WO(ctrl);

static ssize_t status_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	struct trial_ufs *ufs = lock_device(dev);
	const int state = ufs->snapshot.state;

	mutex_unlock(&ufs->lock);
	return sysfs_emit(buf, "%s\n", snapshot_words[state]);
}
static DEVICE_ATTR_RO(status);

static struct attribute *snapshot_attrs[] = {
	&dev_attr_ctrl.attr,
	&dev_attr_status.attr,
	&dev_attr_dropfreesize.attr,
	NULL,
};
static const struct attribute_group snapshot_group = { .name = "ufssnapshot",
						       .attrs = snapshot_attrs };

/*
 * The driver core adds them after probe(). At the end it removes them first, and waits for those who
 * are in one of the functions above.
 */
static const struct attribute_group *controller_groups[] = { &fbo_group, &eua_group,
							      &snapshot_group, NULL };

/* The wear where each maker has it: see docs/nodes.md. */
static ssize_t hr_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	u8 report[HEALTH_REPORT_SIZE] = { [144] = 1 };
	const __be32 big = cpu_to_be32(cycles);
	const __le32 little = cpu_to_le32(cycles);

	memcpy(report + 8, &little, sizeof(little));
	memcpy(report + 24, &big, sizeof(big));
	memcpy(report + 156, &big, sizeof(big));
	return bin2hex(buf, report, sizeof(report)) - buf;
}
static DEVICE_ATTR_RO(hr);

static struct attribute *health_attrs[] = { &dev_attr_hr.attr, NULL };
static const struct attribute_group health_group = { .name = "ufshcd0", .attrs = health_attrs };
static const struct attribute_group *health_groups[] = { &health_group, NULL };

/*
 * On a phone the controller's SCSI host is its child. Here it is one that is there already, like
 * scsi_debug's: its INQUIRY data and its disk are a real SCSI device's.
 */
static void link_host(struct trial_ufs *ufs, int number)
{
	struct Scsi_Host *host = scsi_host_lookup(number);
	int err = host ? sysfs_create_link(&ufs->dev->kobj, &host->shost_gendev.kobj,
					   dev_name(&host->shost_gendev)) :
			 -ENODEV;

	if (err)
		dev_info(ufs->dev, "no link to SCSI host %d: %d\n", number, err);
	if (host)
		scsi_host_put(host);
}

/* By then no node is left, so nothing starts the work anew. */
static void end_device(void *data)
{
	struct trial_ufs *ufs = data;
	char name[16];

	snprintf(name, sizeof(name), "host%d", to_platform_device(ufs->dev)->id);
	sysfs_remove_link(&ufs->dev->kobj, name);
	cancel_delayed_work_sync(&ufs->drop_event);
}

static int trial_probe(struct platform_device *pdev)
{
	struct trial_ufs *ufs = devm_kzalloc(&pdev->dev, sizeof(*ufs), GFP_KERNEL);

	if (!ufs)
		return -ENOMEM;
	ufs->dev = &pdev->dev;
	mutex_init(&ufs->lock);
	INIT_DELAYED_WORK(&ufs->drop_event, send_drop_event);
	platform_set_drvdata(pdev, ufs);
	link_host(ufs, pdev->id);
	return devm_add_action_or_reset(&pdev->dev, end_device, ufs);
}

static const struct platform_device_id trial_ids[] = { { "ufshc" }, {} };

static struct platform_driver trial_driver = {
	.probe = trial_probe,
	.id_table = trial_ids,
	.driver = {
		.name = "ufshcd-qcom",
		.dev_groups = controller_groups,
	},
};

static struct class *health_class;
static struct device *health_device;
static struct platform_device *trial_devices[MAX_CONTROLLERS];

static void unregister_devices(void)
{
	int i;

	for (i = 0; i < MAX_CONTROLLERS; i++)
		platform_device_unregister(trial_devices[i]);
}

static int __init trial_init(void)
{
	int err, i;

#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 4, 0)
	health_class = class_create("qe_memory");
#else
	health_class = class_create(THIS_MODULE, "qe_memory");
#endif
	if (IS_ERR(health_class))
		return PTR_ERR(health_class);
	health_device = device_create_with_groups(health_class, NULL, 0, NULL, health_groups,
						  "qe_memory_device");
	err = PTR_ERR_OR_ZERO(health_device);
	if (err)
		goto destroy_class;
	err = platform_driver_register(&trial_driver);
	if (err)
		goto unregister_health;
	for (i = 0; !err && i < min(controllers, MAX_CONTROLLERS); i++) {
		trial_devices[i] = platform_device_register_simple("ufshc", i, NULL, 0);
		err = PTR_ERR_OR_ZERO(trial_devices[i]);
	}
	if (!err)
		return 0;
	unregister_devices();
	platform_driver_unregister(&trial_driver);
unregister_health:
	device_unregister(health_device);
destroy_class:
	class_destroy(health_class);
	return err;
}

static void __exit trial_exit(void)
{
	unregister_devices();
	platform_driver_unregister(&trial_driver);
	device_unregister(health_device);
	class_destroy(health_class);
}

module_init(trial_init);
module_exit(trial_exit);
MODULE_DESCRIPTION("Nodes of a UFS driver on a device that is made up");
MODULE_LICENSE("GPL");
