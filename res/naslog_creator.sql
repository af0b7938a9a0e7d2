-- Event log database, run once when the file is created.
CREATE TABLE IF NOT EXISTS t_configure (
    cfg_no INTEGER PRIMARY KEY AUTOINCREMENT,
    cfg_userno INTEGER,
    cfg_key VARCHAR(250),
    cfg_type INTEGER,
    cfg_value VARCHAR(250),
    cfg_stamp VARCHAR(20),
    cfg_description VARCHAR(250)
);
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('appid', 'naslog');
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('dbversion', '1');
INSERT INTO t_configure(cfg_key, cfg_value) VALUES ('createtime', datetime('now', 'localtime'));
CREATE TABLE ORVOLOG (
    log_no INTEGER PRIMARY KEY AUTOINCREMENT,
    EVENTLEVEL TEXT NOT NULL,
    USERNAME TEXT,
    IPADDR TEXT,
    EVENTDES TEXT NOT NULL,
    APPNAME TEXT,
    DEVICENAME TEXT,
    EVENTTIME TEXT NOT NULL,
    SPAREFIELD1 TEXT,
    SPAREFIELD2 TEXT,
    SPAREFIELD3 TEXT
);
