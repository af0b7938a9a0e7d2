-- Samba audit database, run once when the file is created.
CREATE TABLE IF NOT EXISTS t_configure (
    cfg_no INTEGER PRIMARY KEY AUTOINCREMENT,
    cfg_userno INTEGER,
    cfg_key VARCHAR(250),
    cfg_type INTEGER,
    cfg_value VARCHAR(250),
    cfg_stamp VARCHAR(20),
    cfg_description VARCHAR(250)
);
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('appid', 'smbaudit');
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('dbversion', '1');
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('createtime', datetime('now', 'localtime'));
CREATE TABLE IF NOT EXISTS reference_info (
    rfi_no INTEGER PRIMARY KEY AUTOINCREMENT,
    rfi_keyname TEXT,
    rfi_value TEXT,
    rfi_explain TEXT
);
-- Action 3 has no row; the front end copes.
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '1', '访问(只读打开文件)');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '2', '修改(为修改打开文件。但有可能最终没有进行写入)');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '4', '新建文件夹');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '5', '重命名文件(夹)');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '6', '移动文件(夹)');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '7', '删除到回收站');
INSERT INTO reference_info(rfi_keyname, rfi_value, rfi_explain) VALUES ('t_smbaudit_log.aud_action', '8', '彻底删除');
CREATE TABLE IF NOT EXISTS t_smbaudit_dir (
    sad_no INTEGER PRIMARY KEY AUTOINCREMENT,
    sad_datetime TIMESTAMP,
    sad_dir TEXT
);
CREATE TABLE IF NOT EXISTS t_smbaudit_log (
    aud_no INTEGER PRIMARY KEY AUTOINCREMENT,
    sad_no INTEGER,
    aud_date DATE,
    aud_datetime TIMESTAMP,
    aud_filepath TEXT,
    aud_user TEXT,
    aud_group TEXT,
    aud_ipaddr TEXT,
    aud_machine TEXT,
    aud_sharename TEXT,
    aud_action INTEGER,
    aud_explain TEXT,
    aud_description TEXT
);
