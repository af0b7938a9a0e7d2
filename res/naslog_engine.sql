-- Event log statements.
-- The level flags of orvolog_loadby are joined by AND (one level or none),
-- those of orvolog_tail by OR; "page" is a 1-based row offset. Kept as the
-- front end relies on them. Rows of the same second keep their insertion order.

SQL: orvolog_loadby
SELECT * FROM ORVOLOG
WHERE (:level_info = 0 OR EVENTLEVEL = 'Information')
  AND (:level_warn = 0 OR EVENTLEVEL = 'Warning')
  AND (:level_error = 0 OR EVENTLEVEL = 'Error')
  AND (:username = '' OR USERNAME LIKE '%'||:username||'%')
  AND (:ipaddr = '' OR IPADDR LIKE '%'||:ipaddr||'%')
  AND (:description = '' OR EVENTDES LIKE '%'||:description||'%')
  AND (:appname = '' OR APPNAME LIKE '%'||:appname||'%')
  AND (:startdate = '' OR EVENTTIME >= :startdate)
  AND (:enddate = '' OR DATETIME(EVENTTIME) < DATETIME(:enddate, '+1 day'))
ORDER BY EVENTTIME, log_no LIMIT :ofpage OFFSET :page-1
Params:
level_info int
level_warn int
level_error int
username string
ipaddr string
description string
appname string
startdate string
enddate string
ofpage int
page int

SQL: orvolog_tail
SELECT * FROM ORVOLOG
WHERE (:level_info = 0 OR EVENTLEVEL = 'Information')
   OR (:level_warn = 0 OR EVENTLEVEL = 'Warning')
   OR (:level_error = 0 OR EVENTLEVEL = 'Error')
ORDER BY EVENTTIME DESC, log_no DESC LIMIT :amount
Params:
level_info int
level_warn int
level_error int

SQL: orvolog_append
INSERT INTO ORVOLOG (EVENTLEVEL, USERNAME, IPADDR, EVENTDES, APPNAME, DEVICENAME, EVENTTIME,
                     SPAREFIELD1, SPAREFIELD2, SPAREFIELD3)
VALUES (:level, :username, :ipaddr, :description, :appname, :devicename,
        datetime('now', 'localtime'), :sparefield1, :sparefield2, :sparefield3)
Params:
level string
username string
ipaddr string
description string
appname string
devicename string
sparefield1 string
sparefield2 string
sparefield3 string

SQL: orvolog_removeall
DELETE FROM ORVOLOG
